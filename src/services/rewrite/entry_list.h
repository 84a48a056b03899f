// The file that names the accounts' files to a server, such as a zone clause or an include line for each.
//
// Text that the server takes: before each entry a comment "# file <path> of <account> <part>" says which file it is
// about and whose that is. What stands before the first of them is the head, which is written anew each time.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "core/sys/identity.h"
#include "core/text/text.h"
#include "services/rewrite/candidate.h"

namespace zvtaskq {

struct ListPlace {
  /// Empty when there is no list.
  std::string path;
  Ids owner{};
  mode_t mode = 0640;
  /// Lines that begin with "#", or whatever else the server wants before the entries; ends with a line feed.
  std::string head;
};

struct Entry {
  Origin origin;
  /// Whole lines.
  std::string text;
};

/// The entries by the paths of their files.
class EntryList {
 public:
  /// Takes the entries of a list's text.
  void read(std::string_view text);
  /// The list with a head.
  std::string text(std::string_view head) const;

  std::map<std::string, Entry>& entries() { return entries_; }
  const std::map<std::string, Entry>& entries() const { return entries_; }

 private:
  std::map<std::string, Entry> entries_;
};

}  // namespace zvtaskq
