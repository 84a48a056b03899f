// List files that somebody else wrote: the lines, the order and the repeats that their description says; and address
// lists whose lines compare in a circle stay within their bounds.
#include <algorithm>
#include <array>

#include "core/record/list_file.h"
#include "support.h"

using namespace zvtaskq;
using namespace zvtaskq::fuzz;

namespace {

constexpr int kOtherType = 3;

/// The numbers of an address, the count of them first: what does not read is 0.
template <class Number, std::size_t N>
std::array<Number, N> numbersOf(const std::string& text, const char* format, int& count) {
  std::array<Number, N> n{};
  if constexpr (N == 4) {
    count = std::sscanf(text.c_str(), format, &n[0], &n[1], &n[2], &n[3]);
  } else {
    count = std::sscanf(text.c_str(), format, &n[0], &n[1], &n[2], &n[3], &n[4], &n[5], &n[6], &n[7]);
  }
  return n;
}

int order(const std::string& a, const std::string& b, int listType) {
  if (listType == 0) return static_cast<int>(comesBefore(b, a)) - static_cast<int>(comesBefore(a, b));
  if (listType == kOtherType) return 0;
  int left = 0, right = 0;
  if (listType == 2) {
    const char* format = "%x:%x:%x:%x:%x:%x:%x:%x";
    const auto x = numbersOf<unsigned, 8>(a, format, left), y = numbersOf<unsigned, 8>(b, format, right);
    if (left == 8 && right == 8) return x < y ? -1 : static_cast<int>(y < x);
  }
  const auto x = numbersOf<int, 4>(a, "%d.%d.%d.%d", left), y = numbersOf<int, 4>(b, "%d.%d.%d.%d", right);
  return x < y ? -1 : static_cast<int>(y < x);
}

std::vector<std::string> plainlyRead(std::string_view text, int listType, bool keepOrder, bool keepComments) {
  std::vector<std::string> kept;
  for (const std::string& line : linesOf(text)) {
    if (line.empty() || (!keepComments && (line[0] == '#' || line[0] == ' '))) continue;
    const bool known = std::any_of(kept.begin(), kept.end(),
                                   [&](const std::string& other) { return order(line, other, listType) == 0; });
    if (keepOrder || !known) kept.push_back(line);
  }
  const auto before = [&](const std::string& a, const std::string& b) { return order(a, b, listType) < 0; };
  if (!keepOrder) std::stable_sort(kept.begin(), kept.end(), before);
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
    if (i % 2 == 0) {
      list.insertElement(want[i].c_str());
    } else {
      list.addElement(want[i].c_str());
    }
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

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  standAside();
  return 0;
}

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

  const auto want = plainlyRead(text, listType, keepOrder, keepComments);
  const bool inCircles = listType == 2 && !keepOrder;
  if (!inCircles) requireSameLines(list, want, "read");
  if (writes) {
    list.changed = true;
    require(list.writeFile("written") == 1, "written", list.result.view());
    ListFile again("written");
    again.setUser(nullptr);
    again.keepOrder = again.keepComments = true;
    require(again.readFile() == 1 && again.size() == list.size(), "read again");
  }
  if (inCircles || listType == kOtherType || keepOrder) {
    workOn(list, linesOf(text));
  } else {
    requireWorksAsASet(list, want);
  }
  return 0;
}
