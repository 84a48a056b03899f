// safe_write_work ours|plain TIMES FILE: writes a small record that often: as the panel does, with its lock and its
// owner's identity; or by the plain calls that make a replaced file as safe on the disk.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/record/config_file.h"

using namespace zvtaskq;

namespace {

const char* const kNames[] = {"bandwidth", "creator", "date_created", "domain", "email",    "ip",       "language",
                              "name",      "nemails", "package",      "quota",  "usertype", "username", "vdomains"};

std::string valueOf(int turn, const char* name) {
  return std::string(name) + std::to_string(turn % 10);
}

int writeOurs(int turn, ConfigFile& record) {
  for (const char* name : kNames) record.setParam(name, valueOf(turn, name).c_str());
  return record.writeFile();
}

void syncFolderOf(const std::string& path) {
  const int folder = ::open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  ::fsync(folder);
  ::close(folder);
}

int writePlainly(int turn, const std::string& path) {
  std::string content;
  for (const char* name : kNames) content += std::string(name) + "=" + valueOf(turn, name) + "\n";
  const std::string temporary = path + ".temp";
  const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) return 0;
  const bool whole = ::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size());
  const bool safe = ::fsync(file) == 0 && ::close(file) == 0;
  if (!whole || !safe || ::rename(temporary.c_str(), path.c_str()) != 0) return 0;
  syncFolderOf(path);
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  const bool ours = std::string_view(arguments[1]) == "ours";
  ConfigFile record(arguments[3]);
  record.setUser("zvadmin");
  for (int turn = 0; turn < std::atoi(arguments[2]); ++turn) {
    if (!(ours ? writeOurs(turn, record) : writePlainly(turn, arguments[3]))) {
      std::fprintf(stderr, "%s\n", record.result.orEmpty());
      return 1;
    }
  }
  return 0;
}
