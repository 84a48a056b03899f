#include "tally/bruteforce/lines/filters.h"

#include "core/panel/marks.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/text/text.h"
#include "tally/bruteforce/lines/data_paths.h"

namespace zvtaskq {

namespace {

struct Field {
  const char* key;
  std::string BruteFilter::*text;
};
constexpr Field kFields[] = {
    {"binary", &BruteFilter::binary},
    {"text", &BruteFilter::text},
    {"text2", &BruteFilter::text2},
    {"text3", &BruteFilter::text3},
    {"ip_after", &BruteFilter::ipAfter},
    {"ip_until", &BruteFilter::ipUntil},
    {"user_after", &BruteFilter::userAfter},
    {"user_until", &BruteFilter::userUntil},
    {"attempts_after", &BruteFilter::attemptsAfter},
    {"attempts_until", &BruteFilter::attemptsUntil},
};

/// A name becomes the name of a count, between "&" and "=".
bool canNameCount(std::string_view name) {
  return name.find_first_of("&%+") == std::string_view::npos && printable(name) == name;
}

bool isSound(const BruteFilter& filter) {
  return !filter.text.empty() && canNameCount(filter.name);
}

BruteFilter filterOf(const char* name, const char* record) {
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(record);
  BruteFilter filter;
  filter.name = name;
  for (const Field& field : kFields) {
    const char* text = pairs.getValue(field.key);
    if (text != nullptr) filter.*field.text = text;
  }
  return filter;
}

}  // namespace

int BruteFilters::read(const Config& conf) {
  const std::string path = bruteFilterFile(conf);
  ConfigFile list(path.c_str());
  // Templates are the administrator's, who installs them as root: nobody else may make the lock beside them.
  list.setUser("root");
  if (!list.exists()) {
    debug(100, "There is no %s: using the filters of the program", path.c_str());
    addStock();
    return 1;
  }
  if (!list.readFile()) {
    tellUnreadable(list);
    return 0;
  }
  std::string unsound;
  for (long long i = 0; i < list.size(); ++i) {
    const BruteFilter filter = filterOf(list.getNameAt(i), list.getValueAt(i));
    if (!isSound(filter)) unsound += printable(filter.name) + " ";
  }
  constexpr std::size_t kLongest = 300;
  add(list, unsound.empty() || isDueAgain("brute_filters", unsound.substr(0, kLongest)));
  return 1;
}

void BruteFilters::add(const ConfigFile& list, bool telling) {
  for (long long i = 0; i < list.size(); ++i) {
    BruteFilter filter = filterOf(list.getNameAt(i), list.getValueAt(i));
    if (isSound(filter)) {
      filters_.push_back(std::move(filter));
    } else if (telling) {
      errorLog("Brute-force filter %s is left out: it needs a text, and a name without \"&\", \"%%\" and \"+\"",
               filter.name.c_str());
    }
  }
}

void BruteFilters::addStock() {
  ConfigFile list(nullptr);
  const auto row = [&list](const char* name, std::initializer_list<const char*> texts) {
    ConfigFile filter(nullptr);
    const Field* field = kFields;
    for (const char* text : texts) {
      if (text != nullptr) filter.setParam(field->key, text);
      ++field;
    }
    const Text record = filter.createPostString(1);
    list.setParam(name, record);
  };
#define FILTER(name, ...) row(name, {__VA_ARGS__});
#include "tally/bruteforce/lines/filters.def"
  add(list);
}

}  // namespace zvtaskq
