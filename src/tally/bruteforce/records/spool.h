// The log lines that count, put aside while a scan goes on: in the order they come, in a file, so that no scan is held
// in memory.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/sys/sys.h"

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

/// Reads them one after another, from one of them on. Runs under an identity that may read the file.
class SpoolReader {
 public:
  SpoolReader(const char* path, long long start);
  /// The next entry, valid until the next call. False at the end, and when it cannot be read.
  bool next(BruteEntry& entry);

 private:
  bool ensure(std::size_t wanted);

  Descriptor file_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0, end_ = 0;
};

/// Which of `SpooledEntries::starts` an entry's number belongs to: how many digits more than four it has.
std::size_t keyLengthOf(long long number);

}  // namespace zvtaskq
