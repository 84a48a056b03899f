#include "core/sys/operation.h"

#include <string>

#include "core/sys/log.h"

namespace zvtaskq {

namespace {
std::string& noted() {
  static std::string names;
  return names;
}
}  // namespace

void noteUnavailable(const char* operation) {
  std::string& names = noted();
  if (!names.empty()) names += ", ";
  names += operation;
}

void reportUnavailable(const char* what) {
  std::string& names = noted();
  if (names.empty()) return;
  errorLog("%s: not available in this build: %s", what, names.c_str());
  names.clear();
}

}  // namespace zvtaskq
