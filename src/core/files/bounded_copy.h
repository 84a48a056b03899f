// Copying what stands in a file that somebody else may be changing at the same time.
#pragma once

#include <chrono>
#include <climits>

namespace zvtaskq {

/// Seconds that a copy may take when nobody says otherwise.
inline constexpr int kMostCopyTime = 6 * 3600;

/// One copy: from the beginning of one open file to where another stands. Holes stay holes. However the file grows, the
/// copy ends: at the size that its caller has seen, at the most data, or when its time is over. It comes to a safe
/// point before every block. Nothing is flushed. Works under the identity of the moment.
class BoundedCopy {
 public:
  /// At most `mostData` bytes besides the holes, and `seconds` in all. Both descriptors stay the caller's.
  BoundedCopy(int from, int to, long long mostData = LLONG_MAX, int seconds = kMostCopyTime);

  /// Goes on up to the byte `end`, or to the end of the file when it comes first. 0 with errno: EFBIG when there is
  /// more data, ETIMEDOUT when the time is over.
  [[nodiscard]] int upTo(long long end);
  /// Goes on until there is nothing more.
  [[nodiscard]] int toEnd();
  /// The bytes that are done with, holes included.
  long long done() const { return done_; }

 private:
  [[nodiscard]] int copyStretch(long long begin, long long end);
  [[nodiscard]] int mayGoOn() const;
  [[nodiscard]] int endInHole(long long end);

  int from_;
  int to_;
  /// Where the copy begins in the other file.
  long long shift_;
  long long room_;
  std::chrono::steady_clock::time_point deadline_;
  long long done_ = 0;
};

/// Copies the first `size` bytes of one open file to an empty other, holes staying holes. 0 with errno; EFBIG when
/// there are more than `mostData` bytes besides the holes. Nothing is flushed.
[[nodiscard]] int copyContent(int from, int to, long long size, long long mostData);

}  // namespace zvtaskq
