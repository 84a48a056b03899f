// Prints the stock list of brute-force filters from the rows that the program itself is made of.
//
// The result is kept in share/templates; the build target update_filter_list writes it anew.
#include <cstdio>

#include "core/record/config_file.h"

using namespace zvtaskq;

namespace {

void print(const char* name, std::initializer_list<const char*> values) {
  constexpr const char* kKeys[] = {"binary",   "text",       "text2",      "text3",          "ip_after",
                                   "ip_until", "user_after", "user_until", "attempts_after", "attempts_until"};
  ConfigFile filter(nullptr);
  const char* const* key = kKeys;
  for (const char* value : values) {
    if (value != nullptr) filter.setParam(*key, value);
    ++key;
  }
  std::printf("%s=%s\n", name, filter.createPostString(1).orEmpty());
}

}  // namespace

int main() {
#define FILTER(name, ...) print(name, {__VA_ARGS__});
#include "tally/bruteforce/lines/filters.def"
}
