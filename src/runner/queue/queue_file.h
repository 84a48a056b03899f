// One queue file on its way: taken over from its writers, read, deleted when its lines are done.
//
// The file is renamed to "<path>.tmp", and writers then make a new one. So that nothing is lost and nothing done twice:
// - a writer that had the file open at the rename is waited for (a read lease is granted only when there is none),
//   what one writes later all the same is found by reading on when the lines are done, and what comes later still by
//   a later run (runner/queue/retired_queue.h);
// - runs hand over one at a time, under a lock that only root can reach and that dies with its holder;
// - each run holds a `flock` on the file it works on: a ".tmp" without one was left behind by a crash and is kept
//   aside with its lines; one with it belongs to a run that is still busy and only moves out of the way;
// - what goes in the end is the file that was read, under whichever of the two names it has by then, and no other.
#pragma once

#include <memory>
#include <string>

#include "core/read/line_reader.h"
#include "core/record/list_file.h"
#include "core/sys/sys.h"
#include "runner/queue/queue_place.h"

namespace zvtaskq {

/// No line of a queue is longer (bytes): whoever may write there can make a file of any size out of nothing.
inline constexpr long long kLongestTask = 8LL << 20;
/// Why a file is kept whose last line has no end.
inline constexpr const char* kUnfinishedLine = "its last line is not finished and was not carried out, the others were";

class QueueFile {
 public:
  explicit QueueFile(const char* path);

  enum class Taken { absent, yes, failed };
  /// Moves the queue file aside and opens it, under the identity of root, which it gives back. `failed`: "Error
  /// renaming Q file to tmp Q file: %s" has been logged.
  Taken take();

  /// Adds the lines that have not been read yet to `lines`, of a very long queue only the next half million or 32 MB.
  /// 0, with "Error reading the tmp Q file" logged, when that is not possible; the lines are then kept aside by
  /// `finish`.
  [[nodiscard]] int read(ListFile& lines);
  /// Whether there are lines that have not been read: left by the last read, or arrived since.
  bool hasMore();

  /// Takes the file out of the way ("Error removing tmp Q file" when that fails): it retires and is deleted by a later
  /// run. What could not be read, an unfinished last line included, is kept aside instead.
  void finish();

 private:
  bool moveAside();
  bool openTaken();
  void waitForWriters();
  bool makeWay();
  StandingFile standing(const std::string& name) const;
  StandingFile standsNow();
  std::string whyUnread() const;

  QueuePlace place_;
  Descriptor file_;
  Descriptor retired_;
  struct stat identity_ {};
  std::unique_ptr<LineReader> reader_;
  /// Bytes whose lines are carried out.
  long long done_ = 0;
  int error_ = 0;
  bool readable_ = true;
  /// The last read ended at its limit.
  bool cutShort_ = false;
};

}  // namespace zvtaskq
