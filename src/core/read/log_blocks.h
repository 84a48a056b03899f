// Reading a log that others write to, in large blocks of whole lines.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace zvtaskq {

/// A line longer than a block is handed out as its beginning alone.
class LogBlocks {
 public:
  /// Reads from where the descriptor stands, which is `position`. The descriptor stays the caller's.
  LogBlocks(int fd, long long position);

  /// The next lines, of which each ends in a line feed; valid until the next call. False at the end of the file and on
  /// an error (see `failed`), and when only an unfinished line is left.
  bool next(std::string_view& lines);
  /// Where the first line begins that was not handed out.
  long long position() const { return position_; }
  /// How far the file has been seen: behind `position` by an unfinished line.
  long long seen() const { return seen_; }
  /// Reading failed, with errno.
  bool failed() const { return failed_; }

 private:
  bool read(char* into, std::size_t room, std::size_t& got);
  bool handOut(std::size_t size, long long position, std::string_view& lines);
  bool handOutLongLine(std::string_view& lines);

  int fd_;
  std::unique_ptr<char[]> buffer_;
  /// What the buffer holds, and how much of that was handed out.
  std::size_t end_ = 0;
  std::size_t handedOut_ = 0;
  long long position_;
  long long seen_;
  bool failed_ = false;
};

}  // namespace zvtaskq
