// The values that a template is filled with: a record, and what the template itself defines on the way.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "core/record/config_file.h"

namespace zvtaskq {

/// Definitions are kept aside while a template is read and join the record all at once: a record that is looked into
/// between any two of a hundred thousand would be put in order as often.
class TokenValues {
 public:
  /// The record stays the caller's and must outlive this.
  explicit TokenValues(ConfigFile& record) : record_(record) {}
  ~TokenValues() { settle(); }
  TokenValues(const TokenValues&) = delete;
  TokenValues& operator=(const TokenValues&) = delete;

  /// The value, valid until the next definition; null when the name has none.
  const char* find(std::string_view name) const;
  /// Whether the name is there, with or without a value.
  bool holds(std::string_view name) const;
  void define(std::string_view name, std::string value);
  /// The record, with everything defined so far.
  const ConfigFile& record() {
    settle();
    return record_;
  }

 private:
  void settle();

  ConfigFile& record_;
  std::unordered_map<std::string, std::string> defined_;
  /// Room for a name with its terminator, kept from one look-up to the next.
  mutable std::string name_;
};

}  // namespace zvtaskq
