// The log lines that counted: put aside while a scan goes on, and in the end appended to the list of entries.
//
// A list of entries is sorted by its keys as texts, where "…10000" stands before "…1001". So the lines wait in a file,
// in the order they came, and are read again by one reader for each length of a key, from which the order is merged:
// no scan is held in memory.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/sys.h"

namespace zvtaskq {

struct BruteEntry {
  long long attempts = 1;
  /// Which of the scan's filters.
  std::uint32_t filter = 0;
  /// In its clean form; empty for none.
  std::string_view address;
  /// A part of `line`, or empty.
  std::string_view user;
  std::string_view line;
};

/// The entries of one scan, as the file at `path` holds them.
struct SpooledEntries {
  std::string path;
  long long count = 0;
  /// Where in the file the first entry of each key length begins: the 1st, 10,000th, 100,000th and so on.
  std::vector<long long> starts;
};

/// Writes them. The file is made anew, for the panel's user alone, when the first entry comes.
class EntrySpool {
 public:
  explicit EntrySpool(std::string path) { entries_.path = std::move(path); }
  EntrySpool(const EntrySpool&) = delete;
  EntrySpool& operator=(const EntrySpool&) = delete;

  /// Errors are kept for `finish`.
  void add(const BruteEntry& entry);
  /// Writes out and flushes to the disk. 0 with errno when any of it failed.
  [[nodiscard]] int finish();
  const SpooledEntries& entries() const { return entries_; }

 private:
  int open();
  void drain();

  SpooledEntries entries_;
  Descriptor file_;
  std::string buffer_;
  long long size_ = 0;
  int error_ = 0;
};

/// Appends the entries of a scan at `time` (seconds since the epoch), sorted by key, to the list of entries, under its
/// lock, as the panel's user; nobody afterwards. `filters` are the names of the scan's filters. With `resume` an
/// earlier attempt may have appended some already: its torn last line is cut off, and only what is missing is added. 0
/// with an error-log line; the list is then as long as before.
[[nodiscard]] int appendBruteEntries(const SpooledEntries& entries, const std::vector<std::string>& filters,
                                     long long time, bool resume);
/// The time of the last entry of the list; 0 when there is none, or its end is too long to find it. Leaves the process
/// at nobody.
long long timeOfLastEntry();

}  // namespace zvtaskq
