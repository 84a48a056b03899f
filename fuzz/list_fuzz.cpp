// List files that somebody else wrote: the lines, the order and the repeats that their description says; and address
// lists, whose lines may compare in a circle, stay within their bounds.
#include <algorithm>

#include "core/record/list_file.h"
#include "support.h"

namespace {
std::vector<std::string> plainlyRead(std::string_view text, bool keepOrder, bool keepComments) {
  std::vector<std::string> kept;
  for (const std::string& line : linesOf(text)) {
    if (line.empty() || (!keepComments && (line[0] == '#' || line[0] == ' '))) continue;
    if (keepOrder || std::find(kept.begin(), kept.end(), line) == kept.end()) kept.push_back(line);
  }
  if (!keepOrder) std::stable_sort(kept.begin(), kept.end(), comesBefore);
  return kept;
}

void requireSameLines(const ListFile& list, const std::vector<std::string>& want, const char* what) {
  require(list.size() == static_cast<int>(want.size()), what, "number of lines");
  long long bytes = 0;
  for (int i = 0; i < list.size(); ++i) {
    require(want[static_cast<std::size_t>(i)] == list.getElementAt(i), what, want[static_cast<std::size_t>(i)]);
    bytes += static_cast<long long>(want[static_cast<std::size_t>(i)].size()) + 1;
  }
  require(list.getDataSize() == bytes, what, "bytes");
}

/// Every line is found, can be taken out and put back, at any place.
void requireWorksAsASet(ListFile& list, const std::vector<std::string>& want) {
  for (std::size_t i = 0; i < want.size(); ++i) {
    require(list.getIndex(want[i].c_str()) == static_cast<int>(i), "found", want[i]);
  }
  for (std::size_t i = 0; i < want.size() && i < 20; ++i) {
    list.deleteElement(want[i].c_str());
    require(!list.existElement(want[i].c_str()), "taken out", want[i]);
    list.insertElement(want[i].c_str());
  }
  requireSameLines(list, want, "taken out and put back");
}

/// Abbreviated addresses beside whole ones have no order: what is left are lines of the file, and every call ends.
void workOn(ListFile& list, const std::vector<std::string>& lines) {
  require(list.size() <= static_cast<int>(lines.size()), "more lines than there were");
  for (const std::string& line : lines) {
    static_cast<void>(list.getIndex(line.c_str()));
    list.insertElement(line.c_str());
  }
  for (int i = 0; i < list.size(); ++i) {
    const char* line = list.getElementAt(i);
    require(line != nullptr && std::find(lines.begin(), lines.end(), line) != lines.end(), "a line of nobody's");
  }
  list.shuffle();
  list.sort();
  list.trimFront();
  for (const std::string& line : lines) list.deleteElement(line.c_str());
  list.setElement("1.2.3.4", list.size());
  static_cast<void>(list.size());
}

void readIn(ListFile& list, const std::string& text) {
  list.setUser(nullptr);
  list.useLock = false;
  writeInput("list", text);
  require(list.readFile() == 1, "read", list.result.view());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const int listType = static_cast<int>(input.choice(4));
  const bool keepOrder = input.flag(), keepComments = input.flag(), writes = input.choice(16) == 1;
  const std::string text = input.rest();
  ListFile list("list");
  list.listType = listType;
  list.keepOrder = keepOrder;
  list.keepComments = keepComments;
  readIn(list, text);

  const auto want = plainlyRead(text, keepOrder, keepComments);
  const bool byNumbers = listType != 0 && !keepOrder;
  if (!byNumbers) requireSameLines(list, want, "read");
  // A line that is one carriage return would come back as the end of an empty one.
  if (writes && text.find('\r') == std::string::npos) {
    list.changed = true;
    require(list.writeFile("written") == 1, "written", list.result.view());
    ListFile again("written");
    again.setUser(nullptr);
    again.keepOrder = again.keepComments = true;
    require(again.readFile() == 1 && again.size() == list.size(), "read again");
  }
  if (byNumbers || keepOrder) {
    workOn(list, linesOf(text));
  } else {
    requireWorksAsASet(list, want);
  }
  return 0;
}
