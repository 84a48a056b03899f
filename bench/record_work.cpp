// record_work FROM TO: reads a record, sorts it and writes it safely, as any part of the panel does.
#include <cstdio>

#include "core/record/config_file.h"

using namespace zvtaskq;

int main(int count, char** arguments) {
  if (count != 3) return 2;
  ConfigFile record(arguments[1]);
  record.setUser(nullptr);
  if (record.readFile() && record.writeFile(arguments[2])) return 0;
  std::fprintf(stderr, "%s\n", record.result.orEmpty());
  return 1;
}
