// Where a queue file stands, and under which names a run moves it on.
//
// The folder may belong to somebody who is trusted with his queue and no more: the mail server's user. He can exchange
// every name in it at any moment. So the folder is opened once, through no link that anybody but root could have made,
// and everything is opened, looked at, listed, renamed and deleted relative to its descriptor: whatever is swapped,
// nothing outside this folder is reached.
#pragma once

#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

class QueuePlace {
 public:
  explicit QueuePlace(const std::string& path);

  /// Opens the folder, once. 0 with errno.
  [[nodiscard]] int open();

  int folder() const { return folder_.get(); }
  const std::string& path() const { return path_; }
  const std::string& name() const { return parts_.name; }
  /// The name of a file that a run works on.
  const std::string& temporary() const { return temporary_; }
  /// The name of the folder of root's for files that are done with, or that another run has overtaken.
  const std::string& retiredFolder() const { return retiredFolder_; }
  /// The path of what stands beside the queue under that name, for messages and locks.
  std::string pathOf(const std::string& name) const { return joined_ + name; }

 private:
  std::string path_;
  PathParts parts_;
  std::string joined_;
  std::string temporary_;
  std::string retiredFolder_;
  Descriptor folder_;
};

/// A file on its way: the open folder it stands in, its name there, and its path for messages.
struct StandingFile {
  int folder = -1;
  std::string name;
  std::string path;
};

}  // namespace zvtaskq
