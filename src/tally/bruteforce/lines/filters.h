// The filters that recognise a failed log-in: data that the administrator may change.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

class Config;
class ConfigFile;

/// What one kind of line looks like. An empty text is one that the filter does not have.
struct BruteFilter {
  /// The name of the program it is for, with a number behind it.
  std::string name;
  /// The program that must have written the line; with none the whole line is the message.
  std::string binary;
  /// What the message must hold, the second and third behind the beginning of the one before.
  std::string text, text2, text3;
  /// What stands around the address. Without `ipAfter` it begins the message, without `ipUntil` a blank ends it.
  std::string ipAfter, ipUntil;
  std::string userAfter, userUntil;
  std::string attemptsAfter, attemptsUntil;
};

/// The filters in the order of their names, which is the order they are tried in.
class BruteFilters {
 public:
  /// Reads the filter list; when there is none, takes those that the program carries. 0 with an error-log line when it
  /// is there and cannot be read. Leaves the process at nobody.
  [[nodiscard]] int read(const Config& conf);
  /// Adds the filters of a list, name by name a URL-encoded record; one that no line could ever match, or whose name
  /// could not stand in a record, is left out, with an error-log line when `telling`.
  void add(const ConfigFile& list, bool telling = true);
  /// Adds those that the program carries.
  void addStock();

  const std::vector<BruteFilter>& all() const { return filters_; }

 private:
  std::vector<BruteFilter> filters_;
};

}  // namespace zvtaskq
