#include "core/record/list_file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/random.h"
#include "core/text/sorted_order.h"

namespace zvtaskq {

namespace {

enum ListType { kTextType = 0, kIpv4Type = 1, kIpv6Type = 2 };

/// What an address list compares of a line, read once.
struct AddressKey {
  int octets[4] = {};
  unsigned groups[8] = {};
  bool hasGroups = false;

  explicit AddressKey(const char* text) {
    if (text == nullptr) return;
    std::sscanf(text, "%d.%d.%d.%d", &octets[0], &octets[1], &octets[2], &octets[3]);
    hasGroups = std::sscanf(text, "%x:%x:%x:%x:%x:%x:%x:%x", &groups[0], &groups[1], &groups[2], &groups[3], &groups[4],
                            &groups[5], &groups[6], &groups[7]) == 8;
  }
};

/// Null texts after all others, empty ones right before them; 0 when neither is either, or both are the same.
bool decidedByAbsence(const char* a, const char* b, int& order) {
  const auto rank = [](const char* text) { return text == nullptr ? 2 : *text == '\0' ? 1 : 0; };
  order = rank(a) - rank(b);
  return rank(a) != 0 || rank(b) != 0;
}

template <class Number, std::size_t N>
int firstDifference(const Number (&a)[N], const Number (&b)[N]) {
  for (std::size_t i = 0; i < N; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return 0;
}

int compareKeys(const AddressKey& a, const AddressKey& b, int listType) {
  if (listType == kIpv6Type && a.hasGroups && b.hasGroups) return firstDifference(a.groups, b.groups);
  return firstDifference(a.octets, b.octets);
}

int compareAddresses(const char* a, const char* b, int listType) {
  int order = 0;
  return decidedByAbsence(a, b, order) ? order : compareKeys(AddressKey(a), AddressKey(b), listType);
}

}  // namespace

int ipcomp(const char* a, const char* b) {
  return compareAddresses(a, b, kIpv4Type);
}

int ipv6comp(const char* a, const char* b) {
  return compareAddresses(a, b, kIpv6Type);
}

ListFile::ListFile(const char* filename) : DataFile(filename) {}

ListFile::ListFile(const ListFile* other) : DataFile(nullptr) {
  copySettings(*other);
  listType = other->listType;
  other->settle();
  for (int i = 0; i < other->used_; ++i) {
    Line line;
    if (!ensureRoom(i + 1) || (!other->lines_[i].isEmpty() && !stored(other->viewAt(i), line))) return;
    lines_[i] = line;
    used_ = i + 1;
  }
  count_ = other->count_;
  changed = false;
}

ListFile::~ListFile() {
  std::free(lines_);
}

int ListFile::size() const {
  settle();
  return count_;
}

const char* ListFile::getElementAt(int i) const {
  settle();
  return i < 0 || i >= used_ ? nullptr : lines_[i].text;
}

// --- Order -----------------------------------------------------------------------------------------------------

int ListFile::compare(const Line& a, const Line& b) const {
  if (listType == kTextType) return strcomp(a.view(), b.view());
  if (listType == kIpv4Type || listType == kIpv6Type) return compareAddresses(a.text, b.text, listType);
  debug(10, "ListFile::lfcomp(%s, %s) listType: %d\n", a.text == nullptr ? "" : a.text, b.text == nullptr ? "" : b.text,
        listType);
  return 0;
}

void ListFile::settle() const {
  insertedUnseen_ = false;
  if (!unsettled_ || keepOrder) return;
  // Settling changes how the list keeps its lines, never what it holds.
  auto* self = const_cast<ListFile*>(this);
  self->sortLines();
  self->dropRepeats();
  unsettled_ = false;
}

void ListFile::sortLines() {
  if (lines_ == nullptr) return;
  if (listType == kTextType) {
    const auto viewOf = [](const Line& line) { return line.view(); };
    static_cast<void>(
        sortByText(lines_, static_cast<std::size_t>(used_), viewOf, [](const Line&, const Line&) { return 0; }));
  } else if (listType == kIpv4Type || listType == kIpv6Type) {
    sortAddresses();
  }
  while (used_ > 0 && lines_[used_ - 1].isEmpty()) --used_;
}

void ListFile::sortAddresses() {
  std::vector<AddressKey> keys;
  keys.reserve(static_cast<std::size_t>(used_));
  std::vector<std::uint32_t> order;
  for (int i = 0; i < used_; ++i) {
    keys.emplace_back(lines_[i].text);
    order.push_back(static_cast<std::uint32_t>(i));
  }
  // A merge stays within its bounds even where abbreviated IPv6 texts make the order go in a circle.
  std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
    int absent = 0;
    if (decidedByAbsence(lines_[a].text, lines_[b].text, absent)) return absent < 0;
    return compareKeys(keys[a], keys[b], listType) < 0;
  });
  applyOrder(lines_, order.data(), order.size());
}

/// Equal lines stand side by side: the first that came counts.
void ListFile::dropRepeats() {
  int kept = 0;
  for (int i = 0; i < used_; ++i) {
    const bool repeats = kept > 0 && !lines_[i].isEmpty() && compare(lines_[kept - 1], lines_[i]) == 0;
    if (!repeats) lines_[kept++] = lines_[i];
  }
  count_ -= used_ - kept;
  used_ = kept;
}

void ListFile::sort() {
  const bool kept = keepOrder;
  keepOrder = false;
  sortLines();
  keepOrder = kept;
}

int ListFile::placeFor(const Line& line) const {
  const auto before = [this](const Line& a, const Line& b) { return compare(a, b) < 0; };
  return static_cast<int>(std::upper_bound(lines_, lines_ + used_, line, before) - lines_);
}

int ListFile::getIndex(const char* line) const {
  if (line == nullptr) return -1;
  settle();
  const Line wanted{const_cast<char*>(line), std::strlen(line)};
  return searchSorted(count_, [&](int i) { return compare(wanted, lines_[i]); });
}

// --- Adding ----------------------------------------------------------------------------------------------------

bool ListFile::ensureRoom(int slots) {
  if (lines_ != nullptr && slots <= capacity_) return true;
  int wanted = capacity_;
  while (wanted < slots) wanted *= 2;
  void* grown = std::realloc(lines_, static_cast<std::size_t>(wanted) * sizeof(Line));
  if (grown == nullptr) return false;
  lines_ = static_cast<Line*>(grown);
  capacity_ = wanted;
  return true;
}

bool ListFile::stored(std::string_view text, Line& line) {
  char* copy = pool_.copy(text);
  line = {copy, text.size()};
  return copy != nullptr;
}

void ListFile::append(const Line& line) {
  if (!ensureRoom(used_ + 1)) {
    addResult(result, "Can't add anymore parameter the config file. Array was unable to grow\n");
    return;
  }
  lines_[used_++] = line;
  ++count_;
}

void ListFile::insertAt(int place, const Line& line) {
  const int had = used_;
  append(line);
  if (used_ > had) std::rotate(lines_ + place, lines_ + used_ - 1, lines_ + used_);
}

void ListFile::addElement(const char* line) {
  if (line != nullptr) addElement(std::string_view(line));
}

void ListFile::addElement(std::string_view text) {
  if (text.empty()) return;
  changed = true;
  Line line;
  // Comparing scans an address up to the terminator, which a line of a file gets with its copy.
  if (!stored(text, line)) return;
  const bool mayRepeat = !keepOrder && !unsettled_ && used_ > 0;
  const int order = mayRepeat ? compare(lines_[used_ - 1], line) : -1;
  const bool inBetween = order > 0 && !insertedUnseen_;
  const int after = inBetween ? placeFor(line) : used_;
  if (order == 0 || (inBetween && after > 0 && compare(lines_[after - 1], line) == 0)) {
    pool_.giveBack(line.text);
    return;
  }
  if (inBetween) {
    // One line out of order between two looks goes to its place; a second one tells of a bulk fill, sorted later.
    insertedUnseen_ = true;
    insertAt(after, line);
    return;
  }
  unsettled_ = unsettled_ || order > 0;
  append(line);
}

void ListFile::addElement(int n) {
  addElement(std::to_string(n).c_str());
}

void ListFile::addElement(double value, const char* format) {
  char text[64];
  formatNumber(text, sizeof text, value, format);
  addElement(text);
}

void ListFile::insertElement(const char* line) {
  if (line == nullptr || *line == '\0') return;
  settle();
  changed = true;
  Line fresh;
  if (!stored(line, fresh)) return;
  const int after = placeFor(fresh);
  if (after > 0 && compare(lines_[after - 1], fresh) == 0) {
    lines_[after - 1] = fresh;
  } else {
    insertAt(after, fresh);
  }
}

void ListFile::setElement(const char* line, int i) {
  if (line == nullptr || *line == '\0' || i < 0 || i >= capacity_) return;
  settle();
  Line fresh;
  if (!ensureRoom(capacity_) || !stored(line, fresh)) return;
  changed = true;
  while (used_ <= i) lines_[used_++] = Line{};
  if (lines_[i].isEmpty()) ++count_;
  lines_[i] = fresh;
}

void ListFile::fill(const ListFile* other) {
  for (int i = 0; i < other->size(); ++i) addElement(other->getElementAt(i));
}

void ListFile::fill_name(const ConfigFile* record) {
  for (long long i = 0; i < record->size(); ++i) addElement(record->getNameAt(i));
}

// --- Removing --------------------------------------------------------------------------------------------------

void ListFile::deleteElement(const char* line) {
  if (line == nullptr || *line == '\0') return;
  changed = true;
  const int i = getIndex(line);
  if (i >= 0) deleteElementAt(i);
}

void ListFile::deleteIntElement(int n) {
  deleteElement(std::to_string(n).c_str());
}

void ListFile::deleteElementAt(int i) {
  if (i < 0 || i >= capacity_) return;
  settle();
  changed = true;
  if (i >= used_ || lines_[i].isEmpty()) return;
  --count_;
  if (keepOrder) {
    lines_[i] = Line{};
    return;
  }
  std::copy(lines_ + i + 1, lines_ + used_, lines_ + i);
  --used_;
}

void ListFile::remove_null_entries() {
  if (lines_ == nullptr) return;
  used_ = static_cast<int>(std::remove_if(lines_, lines_ + used_, [](const Line& line) { return line.isEmpty(); }) -
                           lines_);
}

void ListFile::empty() {
  count_ = used_ = 0;
  unsettled_ = false;
  pool_.reset();
}

// --- The rest --------------------------------------------------------------------------------------------------

void ListFile::trimFront() {
  settle();
  for (int i = 0; i < used_; ++i) {
    Line& line = lines_[i];
    while (!line.isEmpty() && (*line.text == ' ' || *line.text == '\t')) {
      ++line.text;
      --line.length;
    }
  }
}

void ListFile::shuffle() {
  settle();
  randseed();
  for (int i = count_ - 1; i > 0; --i) std::swap(lines_[i], lines_[getRandNumber(0, i)]);
}

long long ListFile::getDataSize() const {
  settle();
  long long bytes = 0;
  for (int i = 0; i < used_; ++i) {
    if (!lines_[i].isEmpty()) bytes += static_cast<long long>(lines_[i].length) + 1;
  }
  return bytes;
}

void ListFile::printContents() const {
  settle();
  std::printf("listType: %d\n", listType);
  for (int i = 0; i < used_; ++i) {
    if (!lines_[i].isEmpty()) std::printf("%2d: %s\n", i, lines_[i].text);
  }
}

Text ListFile::createPostString(const char* name) {
  if (name == nullptr) {
    addResult(result, "No name provided");
    return {};
  }
  std::string all;
  for (int i = 0; i < size(); ++i) {
    if (i > 0) all += '&';
    all += joined(name, std::to_string(i), "=", viewAt(i));
  }
  return Text::copyOf(std::string_view(all));
}

// --- Files -----------------------------------------------------------------------------------------------------

void ListFile::setFilename(const char* filename) {
  if (filename == nullptr || *filename == '\0') {
    errorLog("ListFile::setFilename: filenm is null or empty");
    return;
  }
  replaceFilename(filename);
}

int ListFile::readFile() {
  return readLines("ListFile::readFile", 0);
}

int ListFile::readFromString(const char* text) {
  std::string_view rest = text == nullptr ? std::string_view() : std::string_view(text);
  std::string_view line;
  while (nextLine(rest, line)) static_cast<void>(takeLine(line));
  return 1;
}

bool ListFile::takeLine(std::string_view line) {
  const bool isComment = !line.empty() && (line[0] == '#' || line[0] == ' ');
  if (keepComments || !isComment) addElement(line);
  return true;
}

int ListFile::writeFile(const char* path) {
  const char* target = path == nullptr ? getFilename() : path;
  if (target == nullptr) return fail(result, "Filename is null");
  return writeLines(target, "ListFile::writeFile", getDataSize());
}

void ListFile::writeContent(SafeFile& out) const {
  for (int i = 0; i < used_; ++i) {
    if (lines_[i].isEmpty()) continue;
    out.write(lines_[i].view());
    out.write('\n');
  }
}

int ListFile::lock() {
  return lockAs("ListFile::lock", 0);
}

}  // namespace zvtaskq
