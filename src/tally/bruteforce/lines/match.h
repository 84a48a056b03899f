// One log line against one filter: whether it tells of a failed log-in, whence, and against whom.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "core/tables/name_table.h"
#include "tally/bruteforce/lines/filters.h"

namespace zvtaskq {

/// The parts of a log line that filters look at. The text stays the caller's.
class BruteLine {
 public:
  explicit BruteLine(std::string_view line) : whole_(line) {}

  std::string_view whole() const { return whole_; }
  /// The message when the program of that name wrote the line (for an empty name: the whole line), else empty. The
  /// program is the fifth word, or behind a time stamp in digits the third; it carries a "[" or ":".
  std::string_view messageOf(std::string_view binary) const {
    if (binary.empty()) return whole_;
    if (!isCut_) cut();
    return program_.starts_with(binary) ? message_ : std::string_view();
  }

 private:
  void cut() const;

  std::string_view whole_;
  mutable std::string_view program_;
  mutable std::string_view message_;
  mutable bool isCut_ = false;
};

/// The addresses that were met, in their clean form.
class AddressTable {
 public:
  /// The number of the address that the text is a spelling of; NameTable::kNone when it is none.
  std::uint32_t numberOf(std::string_view text);
  const NameTable& clean() const { return clean_; }

 private:
  NameTable clean_;
};

/// Which address counts when a message offers several different ones.
enum class AddressChoice { first, last, none };
/// The choice by the word of the settings; `first` for any other.
AddressChoice addressChoiceOf(const char* word);

struct BruteMatch {
  const BruteFilter* filter = nullptr;
  /// Part of the line; empty when it names no account.
  std::string_view user;
  /// The text that should be the address, part of the line.
  std::string_view addressText;
  /// The address that counts; NameTable::kNone for none.
  std::uint32_t address = NameTable::kNone;
  long long attempts = 1;
  /// What should be the address is none.
  bool isMisplaced = false;
  /// The message offers more than one address.
  bool isAmbiguous = false;
};

/// 1 when the filter recognises the line, with what it tells in `out`. The text between `ip_after` and `ip_until` that
/// comes first is the address; when it is none, the first one that is counts, so that nobody escapes by what he calls
/// himself; when a different one follows, `choice` decides.
int fail_match(const BruteFilter& filter, const BruteLine& line, AddressChoice choice, AddressTable& addresses,
               BruteMatch& out);
/// Tries the filters in order until one recognises the line. Of the first 64, those without their bit in `worthwhile`
/// are known not to, and left out.
int parseLine(const std::vector<const BruteFilter*>& filters, const BruteLine& line, AddressChoice choice,
              AddressTable& addresses, BruteMatch& out, std::uint64_t worthwhile = ~std::uint64_t{0});

}  // namespace zvtaskq
