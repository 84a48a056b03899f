// How far a growing log has been read, in a form that another log cannot be taken for.
#pragma once

#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

/// The file, the bytes of it that are done with, and a check sum of the last of them. A log that was emptied or
/// replaced has the mark no more, however far it has grown since, though it may have the name and even the number of
/// the old.
struct LogMark {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  long long offset = 0;
  unsigned long long check = 0;

  /// The mark of an open file read up to `offset`. Offset 0 for one that cannot be looked at.
  static LogMark at(int fd, long long offset);
  /// From `text`; an empty mark for one that does not read.
  static LogMark fromText(const char* text);
  std::string text() const;

  /// Whether the open file still begins as the marked one did, and reaches that far.
  bool fits(int fd) const;
  /// Whether it is the marked file itself.
  bool isOf(int fd) const;
};

}  // namespace zvtaskq
