#include "core/record/config_file.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/text/large_pages.h"
#include "core/text/sorted_order.h"

namespace zvtaskq {

namespace {

/// Up to this many pairs, looking among unsettled ones is cheaper than settling: a queue line is asked for two names.
constexpr long long kFewPairs = 16;
/// How many times the settled pairs may be appended before repeats are sought among them.
constexpr long long kUnsettledShare = 16;

/// Names as signed 64-bit numbers: a name that is no number first, an empty one before every other.
int longlongcomp(std::string_view a, std::string_view b) {
  struct Reading {
    int rank = 0;
    long long number = 0;
  };
  const auto read = [](std::string_view text) {
    Reading reading;
    if (text.empty()) return reading;
    const int scanned = std::sscanf(text.data(), "%lld", &reading.number);
    reading.rank = scanned == 1 ? 2 : 1;
    return reading;
  };
  const Reading left = read(a), right = read(b);
  if (left.rank != right.rank) return left.rank < right.rank ? -1 : 1;
  return static_cast<int>(left.number > right.number) - static_cast<int>(left.number < right.number);
}

std::string_view viewOf(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

bool tooLong(std::string_view text) {
  return text.size() >= std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

ConfigFile::ConfigFile(const char* filename) : DataFile(filename) {}

ConfigFile::ConfigFile(const ConfigFile* other) : DataFile(nullptr) {
  copySettings(*other);
  useLock = other->useLock;
  multiValued = other->multiValued;
  separator = other->separator;
  headerComment = other->headerComment.get();
  callerLocation = other->callerLocation.get();
  const long long count = other->size();
  mayHoldBreak_ = other->mayHoldBreak_;
  capacity_ = other->capacity_;
  pairs_ = static_cast<Pair*>(std::malloc(static_cast<std::size_t>(capacity_) * sizeof(Pair)));
  if (pairs_ == nullptr) return;
  for (; count_ < count; ++count_) {
    const Pair& from = other->pairs_[count_];
    if (!from.isEmpty() && stored(from.nameView(), from.value, from.valueLength, pairs_[count_])) continue;
    pairs_[count_] = Pair{};
  }
}

ConfigFile::~ConfigFile() {
  std::free(pairs_);
}

void ConfigFile::empty() {
  count_ = 0;
  settledCount_ = 0;
  unsettled_ = false;
  mayHoldBreak_ = false;
  pool_.reset();
  if (!result.isEmpty()) result = "";
  changed = true;
}

void ConfigFile::fill(const ConfigFile* other) {
  for (long long i = 0; i < other->size(); ++i) setParam(other->getNameAt(i), other->getValueAt(i));
}

void ConfigFile::fill_list(const char* prefix, const ListFile* list) {
  for (int i = 0; i < list->size(); ++i) setParam(joined(prefix, std::to_string(i)).c_str(), list->getElementAt(i));
}

void ConfigFile::printContents(int bare) const {
  for (long long i = 0; i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (pair.isEmpty()) continue;
    const char* value = pair.value == nullptr ? "" : pair.value;
    if (bare) {
      std::printf("%s%c%s\n", pair.name, separator, value);
    } else {
      std::printf("%2lld: %s%c%s\n", i, pair.name, separator, value);
    }
  }
}

void ConfigFile::set_caller_location(const char* where, int line) {
  callerLocation =
      line < 1 ? Text::copyOf(where) : Text::copyOf(std::string_view(joined(where, ":", std::to_string(line))));
}

long long ConfigFile::size() const {
  settle();
  return count_;
}

// --- Order -----------------------------------------------------------------------------------------------------

int ConfigFile::compare(const Pair& a, const Pair& b) const {
  if (a.isEmpty() || b.isEmpty()) return static_cast<int>(a.isEmpty()) - static_cast<int>(b.isEmpty());
  const int order = numericNames ? longlongcomp(a.nameView(), b.nameView()) : strcomp(a.nameView(), b.nameView());
  return order == 0 && multiValued ? strcomp(a.valueView(), b.valueView()) : order;
}

void ConfigFile::settle() const {
  insertedUnseen_ = false;
  if (!unsettled_ || keepUnsorted) return;
  // Settling changes how the record keeps its pairs, never what it holds.
  auto* self = const_cast<ConfigFile*>(this);
  if (self->sortPairs()) self->keepLastOfEqualNames();
  unsettled_ = false;
  settledCount_ = count_;
}

/// Returns whether names may repeat.
bool ConfigFile::sortPairs() {
  if (pairs_ == nullptr) return false;
  if (numericNames) {
    std::stable_sort(pairs_, pairs_ + count_, [this](const Pair& a, const Pair& b) { return compare(a, b) < 0; });
    return true;
  }
  const auto nameOf = [](const Pair& pair) { return pair.nameView(); };
  const auto valueTie = [this](const Pair& a, const Pair& b) {
    return multiValued ? strcomp(a.valueView(), b.valueView()) : 0;
  };
  return sortByText(pairs_, static_cast<std::size_t>(count_), nameOf, valueTie);
}

/// Equal names stand side by side in the order they were given: the last value that is not null counts.
void ConfigFile::keepLastOfEqualNames() {
  long long kept = 0;
  for (long long i = 0; i < count_; ++i) {
    const Pair& pair = pairs_[i];
    const bool repeats = kept > 0 && !pair.isEmpty() && pair.nameView() == pairs_[kept - 1].nameView() &&
                         (!multiValued || pair.valueView() == pairs_[kept - 1].valueView());
    if (!repeats) {
      pairs_[kept++] = pair;
    } else if (pair.value != nullptr) {
      pairs_[kept - 1] = pair;
    }
  }
  count_ = kept;
}

void ConfigFile::sort() {
  const bool kept = keepUnsorted;
  keepUnsorted = false;
  unsettled_ = true;
  settle();
  keepUnsorted = kept;
}

void ConfigFile::sortNow() {
  keepUnsorted = false;
  sort();
}

// --- Looking up ------------------------------------------------------------------------------------------------

long long ConfigFile::getIndex(const char* name, const char* value) const {
  if (name == nullptr || *name == '\0') return -1;
  settle();
  const std::string_view wanted(name);
  return searchSorted(count_, [&](long long i) {
    const Pair& pair = pairs_[i];
    if (pair.isEmpty()) return -1;
    const int order = caseSensitive ? strcomp(wanted, pair.nameView()) : ::strcasecmp(name, pair.name);
    return order == 0 && value != nullptr ? strcomp(std::string_view(value), pair.valueView()) : order;
  });
}

const ConfigFile::Pair* ConfigFile::find(const char* name) const {
  if (name == nullptr || *name == '\0') return nullptr;
  if (!unsettled_ || !ordersLazily() || count_ > kFewPairs) {
    const long long index = getIndex(name);
    return index < 0 ? nullptr : &pairs_[index];
  }
  const std::string_view wanted(name);
  const Pair* found = nullptr;
  for (long long i = count_ - 1; i >= 0; --i) {
    if (pairs_[i].nameView() != wanted) continue;
    found = &pairs_[i];
    if (found->value != nullptr) break;
  }
  return found;
}

const char* ConfigFile::getNameAt(long long i) const {
  settle();
  return i == -1 ? nullptr : pairs_[i].name;
}

const char* ConfigFile::getValueAt(long long i) const {
  settle();
  return i == -1 ? nullptr : pairs_[i].value;
}

int ConfigFile::existsParam(const char* name) const {
  return find(name) != nullptr ? 1 : 0;
}

int ConfigFile::existsParam(const char* name, const char* value) const {
  return getIndex(name, value) >= 0 ? 1 : 0;
}

int ConfigFile::existsParam(long long n) const {
  return existsParam(std::to_string(n).c_str());
}

int ConfigFile::existsParamStartsWith(const char* prefix) const {
  if (prefix == nullptr || *prefix == '\0') return 0;
  for (long long i = 0; i < size(); ++i) {
    if (pairs_[i].nameView().starts_with(prefix)) return 1;
  }
  return 0;
}

int ConfigFile::isValue(const char* name, const char* value) const {
  const Pair* pair = find(name);
  if (pair == nullptr) return 0;
  const char* own = pair->value == nullptr ? "" : pair->value;
  const char* wanted = value == nullptr ? "" : value;
  return (caseSensitive ? std::strcmp(own, wanted) : ::strcasecmp(own, wanted)) == 0 ? 1 : 0;
}

bool ConfigFile::holdsLineBreak(std::string_view text) {
  return text.find('\n') != std::string_view::npos || text.find('\r') != std::string_view::npos;
}

// --- Storing ---------------------------------------------------------------------------------------------------

bool ConfigFile::stored(std::string_view name, const char* value, std::size_t valueLength, Pair& pair) {
  if (tooLong(name) || tooLong({value, valueLength})) return false;
  char* room = pool_.take(name.size() + 1 + (value == nullptr ? 0 : valueLength + 1));
  if (room == nullptr) return false;
  pair = Pair{};
  pair.name = room;
  pair.nameLength = static_cast<std::uint32_t>(name.size());
  std::memcpy(room, name.data(), name.size());
  room[name.size()] = '\0';
  mayHoldBreak_ = mayHoldBreak_ || holdsLineBreak(name) || holdsLineBreak({value, valueLength});
  if (value == nullptr) return true;
  pair.value = room + name.size() + 1;
  pair.valueLength = pair.valueRoom = static_cast<std::uint32_t>(valueLength);
  if (valueLength > 0) std::memcpy(pair.value, value, valueLength);
  pair.value[valueLength] = '\0';
  return true;
}

/// A value that fits goes where the old one stood; one that does not gets twice the room, so that a value growing by
/// and by does not fill the memory with what it was before.
bool ConfigFile::replaceValue(Pair& pair, const char* value, std::size_t length) {
  if (value == nullptr) return true;
  if (pair.value == nullptr || length > pair.valueRoom) {
    const std::size_t room = std::max<std::size_t>(length, std::size_t{pair.valueRoom} * 2);
    char* larger = room < std::numeric_limits<std::uint32_t>::max() ? pool_.take(room + 1) : nullptr;
    if (larger == nullptr) return false;
    pair.value = larger;
    pair.valueRoom = static_cast<std::uint32_t>(room);
  }
  mayHoldBreak_ = mayHoldBreak_ || holdsLineBreak({value, length});
  if (length > 0) std::memmove(pair.value, value, length);
  pair.value[length] = '\0';
  pair.valueLength = static_cast<std::uint32_t>(length);
  return true;
}

int ConfigFile::refuseGrowth() {
  errorLog("Can't add anymore parameters to the conf file. Recompile with more!\n");
  addResult(result, "Can't add anymore parameter the config file. Array was unable to grow\n");
  return 0;
}

bool ConfigFile::makeRoom() {
  // Repeats that wait to be merged are the cheaper room, but are sought only now and then, and never while a file is
  // read, which bounds what can come.
  if (unsettled_ && !reading_.active && count_ > settledCount_ * kUnsettledShare) settle();
  if (pairs_ != nullptr && count_ < capacity_) return true;

  const long long wanted = pairs_ == nullptr ? capacity_ : capacity_ * (capacity_ < 64 ? 4 : 2);
  const auto bytes = [](long long pairs) { return static_cast<std::size_t>(pairs) * sizeof(Pair); };
  void* grown = grownInLargePages(pairs_, pairs_ == nullptr ? 0 : bytes(count_), bytes(wanted));
  if (grown == nullptr) return false;
  if (pairs_ != nullptr) debug(3501, "ConfigFile::ensureRoom: param=%lld size=%lld", count_, wanted);
  pairs_ = static_cast<Pair*>(grown);
  capacity_ = wanted;
  return true;
}

int ConfigFile::insertAt(long long place, const Pair& pair) {
  if (!append(pair)) return 0;
  std::rotate(pairs_ + place, pairs_ + count_ - 1, pairs_ + count_);
  return 1;
}

long long ConfigFile::placeFor(const Pair& pair) const {
  const auto before = [this](const Pair& a, const Pair& b) { return compare(a, b) < 0; };
  return std::upper_bound(pairs_, pairs_ + count_, pair, before) - pairs_;
}

/// Adds a pair whose texts are in the pool already.
int ConfigFile::place(const Pair& pair) {
  changed = true;
  if (!keepUnsorted && !ordersLazily()) {
    const long long index = getIndex(pair.name, multiValued ? pair.value : nullptr);
    if (index >= 0) return replaceValue(pairs_[index], pair.value, pair.valueLength) ? 1 : refuseGrowth();
    return insertAt(placeFor(pair), pair);
  }
  if (unsettled_ || keepUnsorted) return appendUnsettled(pair);
  if (pairs_ == nullptr || count_ == 0) return append(pair);
  const int order = compare(pairs_[count_ - 1], pair);
  if (order == 0) return replaceValue(pairs_[count_ - 1], pair.value, pair.valueLength) ? 1 : refuseGrowth();
  // One pair out of order between two looks goes to its place; a second one tells of a bulk fill, to be sorted later.
  if (order > 0 && !insertedUnseen_) return insertUnseen(pair);
  return order > 0 ? appendUnsettled(pair) : append(pair);
}

int ConfigFile::insertUnseen(const Pair& pair) {
  const long long after = placeFor(pair);
  insertedUnseen_ = true;
  if (after == 0 || compare(pairs_[after - 1], pair) != 0) return insertAt(after, pair);
  return replaceValue(pairs_[after - 1], pair.value, pair.valueLength) ? 1 : refuseGrowth();
}

int ConfigFile::put(std::string_view name, const char* value, std::size_t valueLength) {
  if (name.empty()) return 0;
  Pair pair;
  return stored(name, value, valueLength, pair) ? place(pair) : refuseGrowth();
}

/// A line that a read hands out becomes a pair by one copy: name and value stand in it as the record keeps them.
int ConfigFile::putLine(std::string_view line, std::size_t separatorAt) {
  if (separatorAt == 0) return 0;
  char* room = tooLong(line) ? nullptr : pool_.copy(line);
  if (room == nullptr) return refuseGrowth();
  room[separatorAt] = '\0';
  return place(pairOf(room, separatorAt, room + separatorAt + 1, line.size() - separatorAt - 1));
}

int ConfigFile::setParam(const char* name, const char* value) {
  if (name == nullptr || *name == '\0') return 0;
  // A value that is there already is replaced where it stands: a counter set a million times takes no room.
  const bool inserted = insertedUnseen_;
  Pair* known = const_cast<Pair*>(keepUnsorted || multiValued || unsettled_ ? nullptr : find(name));
  insertedUnseen_ = inserted;
  if (known == nullptr) return put(name, value, viewOf(value).size());
  changed = true;
  return replaceValue(*known, value, viewOf(value).size()) ? 1 : refuseGrowth();
}

int ConfigFile::insertParam(const char* name, const char* value) {
  if (name == nullptr || *name == '\0') return 0;
  settle();
  changed = true;
  Pair pair;
  if (!stored(name, value, viewOf(value).size(), pair)) return refuseGrowth();
  const long long after = placeFor(pair);
  if (after > 0 && compare(pairs_[after - 1], pair) == 0) {
    return replaceValue(pairs_[after - 1], pair.value, pair.valueLength) ? 1 : refuseGrowth();
  }
  return insertAt(after, pair);
}

int ConfigFile::extendParam(const char* name, const char* text) {
  const char* had = getValue(name);
  if (had != nullptr) return setParam(name, joined(had, text).c_str());
  if (setParam(name, text)) return 1;
  errorLog("Can't add anymore parameters to the conf file (extendParam). Recompile with more!");
  return 0;
}

void ConfigFile::setParam_in_place(long long index, char* value) {
  Text owned = Text::adopt(value);
  settle();
  if (index < 0 || index >= count_) {
    debug(1000, "void ConfigFile::setParam_in_place: tried to set '%s' in value %d, when we only have %d params",
          owned.orEmpty(), static_cast<int>(index), static_cast<int>(count_));
    return;
  }
  if (pairs_[index].isEmpty()) {
    debug(100, "void ConfigFile::setParam_in_place: tried to set '%s' in value %d, but there is no name at this index",
          owned.orEmpty(), static_cast<int>(index));
    return;
  }
  changed = true;
  static_cast<void>(replaceValue(pairs_[index], owned, owned.view().size()));
}

// --- Removing --------------------------------------------------------------------------------------------------

int ConfigFile::deleteParam(const char* name, const char* value) {
  const long long index = getIndex(name, value);
  if (index < 0) return 0;
  changed = true;
  std::copy(pairs_ + index + 1, pairs_ + count_, pairs_ + index);
  --count_;
  return 1;
}

void ConfigFile::deleteParamAt(long long i) {
  settle();
  if (i < 0 || i >= count_) return;
  changed = true;
  pairs_[i] = Pair{};
}

void ConfigFile::shift_down_and_count() {
  settle();
  if (pairs_ == nullptr) return;
  count_ = std::remove_if(pairs_, pairs_ + count_, [](const Pair& pair) { return pair.isEmpty(); }) - pairs_;
}

}  // namespace zvtaskq
