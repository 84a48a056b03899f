// Putting several files in place as one change, whenever the process is killed.
//
// In "<admindir>/state/rewrites": "<name>.lock", which is held by who rewrites; "<name>.candidates", a path a line,
// noted before the candidate of that path is made; "<name>.change", which is there from the moment when the change
// counts until all of it is done: lines "put <path>", "remove <path>", "queue <action> <value>".
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/sys/identity.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

/// The queue line that follows a change.
struct FollowUp {
  std::string action;
  std::string value;
};

/// A file that is written: where, its text, whose it is then.
struct FileToPlace {
  const std::string& path;
  std::string_view text;
  Ids owner{};
  mode_t mode = 0640;
};

class RewriteJournal {
 public:
  explicit RewriteJournal(std::string name);
  /// Takes away every candidate that is not in place.
  ~RewriteJournal();
  RewriteJournal(const RewriteJournal&) = delete;
  RewriteJournal& operator=(const RewriteJournal&) = delete;

  // All of these work as root, which is the identity of the moment.

  /// Waits at most `seconds` for another process that holds it, and does away with what a killed one left. 0 with the
  /// reason in `result`.
  [[nodiscard]] int begin(int seconds, Text& result);
  /// Writes a candidate. 0 with the reason in `result`.
  [[nodiscard]] int stage(const FileToPlace& file, Text& result);
  /// Takes a candidate away again.
  void discard(const std::string& path);
  /// Puts the candidates of `put` in place and removes the files of `remove`, in this order, then queues the follow-up.
  /// 0 with the reason in `result` when nothing of it counts. When only a part could be done the error log says so, and
  /// the rest is done by a later run.
  [[nodiscard]] int commit(const std::vector<std::string>& put, const std::vector<std::string>& remove,
                           const FollowUp& followUp, Text& result);

 private:
  friend void finishKilledRewrites();
  [[nodiscard]] int lock(int seconds, Text& result);
  [[nodiscard]] int recover(Text& result);
  [[nodiscard]] int carryOut(std::string_view change);
  [[nodiscard]] int doStep(const std::string& path, bool isPut);
  [[nodiscard]] int noteCandidate(const std::string& path);
  [[nodiscard]] int writeChange(const std::string& change, Text& result);
  void takeCandidatesAway();
  void takeNotesAway();
  /// The folder that a path stands in, kept open for the next file there; -1 with errno.
  int folderOf(const std::string& folder);

  std::string name_;
  Descriptor state_;
  Descriptor lock_;
  Descriptor candidates_;
  std::string folderPath_;
  Descriptor folder_;
  /// A folder on each file system that is written to.
  std::map<dev_t, Descriptor> toFlush_;
};

/// Does what is left of changes that count already, and takes away the candidates of rewrites that were killed, where
/// no other process is at it. Called in every run. Leaves the identity that it finds.
void finishKilledRewrites();

}  // namespace zvtaskq
