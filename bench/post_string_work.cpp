// post_string_work FILE [build]: parses each line of a file into a record and asks it for two names, as the queue does;
// with "build" makes the line again. Prints how much there was, so that nothing of it can be left out.
#include <cstdio>

#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/sys.h"

using namespace zvtaskq;

int main(int count, char** arguments) {
  if (count < 2) return 2;
  const Descriptor file(sys::open(arguments[1], O_RDONLY));
  if (!file) return 1;
  LineReader lines(file.get());
  ConfigFile record(nullptr);
  std::string_view line;
  long long parsed = 0, built = 0;
  while (lines.next(line)) {
    record.empty();
    record.fillFromPost(line);
    if (record.getValue("action") != nullptr && record.getValue("value") != nullptr) ++parsed;
    if (count > 2) built += static_cast<long long>(record.createPostString(1).view().size());
  }
  std::printf("%lld lines, %lld bytes\n", parsed, built);
  return 0;
}
