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
#include "core/text/text.h"

namespace zvtaskq {

class QueueFile {
 public:
  explicit QueueFile(const char* path);

  enum class Taken { absent, yes, failed };
  /// Moves the queue file aside and opens it. `failed`: "Error renaming Q file to tmp Q file: %s" has been logged.
  /// Runs as root, and leaves nobody's identity unless the file is absent.
  Taken take();

  /// Adds the lines that have not been read yet to `lines`. 0, with "Error reading the tmp Q file" logged, when that
  /// is not possible; the lines are then kept aside by `finish`.
  [[nodiscard]] int read(ListFile& lines);
  /// Whether lines have arrived since the last read.
  bool hasMore();

  /// Takes the file out of the way ("Error removing tmp Q file" when that fails): it retires and is deleted by a later
  /// run. What could not be read, an unfinished last line included, is kept aside instead.
  void finish();

 private:
  bool moveAside();
  bool openTaken();
  void waitForWriters();
  bool makeWay();
  std::string nameNow() const;

  std::string path_;
  std::string temporary_;
  Descriptor file_;
  struct stat identity_ {};
  std::unique_ptr<LineReader> reader_;
  bool readable_ = true;
};

}  // namespace zvtaskq
