// Which names a folder has, for whoever asks for many that it mostly has not.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

namespace zvtaskq {

class FolderNames {
 public:
  /// Of names with this ending, "" for all. Nothing is read yet.
  FolderNames(std::string path, std::string_view ending) : path_(std::move(path)), ending_(ending) {}

  /// Whether the folder may have that name, which has the ending. A few questions are not worth an answer, and get
  /// "maybe"; then the folder is read once, as root, and what comes into it later is not known. One that cannot be read
  /// may have any name; one that is not there has none.
  bool mayHave(const std::string& name);

 private:
  void read();

  std::string path_;
  std::string ending_;
  std::unordered_set<std::string> names_;
  int asked_ = 0;
  bool isKnown_ = false;
};

}  // namespace zvtaskq
