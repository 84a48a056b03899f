// A record: name/value pairs of text kept sorted by name, on disk one `name=value` pair a line, in queue lines and
// requests as URL-encoded pairs joined by "&".
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/record/data_file.h"
#include "core/text/text.h"
#include "core/text/text_pool.h"

namespace zvtaskq {

class ListFile;

class ConfigFile : public DataFile {
 public:
  /// An empty record; a null or empty name leaves it without a file.
  explicit ConfigFile(const char* filename);
  explicit ConfigFile(std::nullptr_t) : ConfigFile(static_cast<const char*>(nullptr)) {}
  /// A deep copy of the other's file name, pairs, mode, owner, group, lock use, caller location, separator, header
  /// comment and `multiValued`; the other settings as in a new record.
  explicit ConfigFile(const ConfigFile* other);
  ~ConfigFile() override;

  /// The character between name and value.
  char separator = '=';
  /// When above 0, a line that opens with `quoteChar` looks for its separator only from that many quotes on.
  int quoteCount = 0;
  char quoteChar = 0;
  /// Look-ups compare names exactly. Off, they ignore case, and may miss names whose case sorts them elsewhere.
  bool caseSensitive = true;
  /// Written as a first line "#" + text; null for none.
  Text headerComment;
  /// `setParam` appends without looking or sorting, until `sortNow`.
  bool keepUnsorted = false;
  /// Names are ordered as signed 64-bit integers.
  bool numericNames = false;
  /// Reading places each pair by `insertParam`.
  bool insertSorted = false;
  /// A write skips the check for line breaks in names and values.
  bool skipSafetyCheck = false;
  /// A name may carry several distinct values.
  bool multiValued = false;
  /// Who is locking, for the lock file and its messages; null for the operation's own name.
  Text callerLocation;
  /// Where a read starts, in bytes from the start (negative: from the end) of the file; 0 reads all of it.
  long long startOffset = 0;

  // --- Contents -----------------------------------------------------------------------------------------------
  /// Frees every pair and clears `result`.
  void empty();
  /// setParam of every pair of the other, in its order.
  void fill(const ConfigFile* other);
  /// setParam(prefix + i, element i) for every element of the list.
  void fill_list(const char* prefix, const ListFile* list);
  /// Prints every pair on standard output, with slot numbers unless `bare`.
  void printContents(int bare) const;
  /// `callerLocation` becomes where + ":" + line, or where alone when line is below 1.
  void set_caller_location(const char* where, int line);

  /// The slots in use; after deleteParamAt some may be empty.
  long long size() const;
  long long capacity() const { return capacity_; }

  // --- Getting ------------------------------------------------------------------------------------------------
  /// The value, owned by the record and valid until that pair changes; null when the name is absent.
  const char* getValue(const char* name) const;
  /// The same; "" when the name is absent.
  const char* getOrEmpty(const char* name) const;
  /// Copies at most `length` bytes of the value, without a terminator when it is that long. 1 if found.
  int getValue(const char* name, char* into, int length) const;
  /// 1 when the name exists and its value scans as the target's type; else 0 and the target keeps what it held.
  int getValue(const char* name, int* into) const;
  int getValue(const char* name, char* into) const;
  int getValue(const char* name, long long* into) const;
  int getValue(const char* name, unsigned long long* into) const;
  int getValue(const char* name, long* into) const;
  int getValue(const char* name, unsigned long* into) const;
  int getValue(const char* name, float* into) const;
  int getValue(const char* name, double* into) const;
  int getValue(const char* name, bool* into) const;
  /// The value of the name that is the decimal text of `n`.
  const char* operator[](int n) const;
  /// The texts of slot i, null for -1 and for an empty slot. No other check of bounds.
  const char* getNameAt(long long i) const;
  const char* getValueAt(long long i) const;
  /// Scans the value of slot i; 0 when it is null or empty.
  int getValueAt(long long i, int* into) const;
  int existsParam(const char* name) const;
  int existsParam(const char* name, const char* value) const;
  int existsParam(long long n) const;
  int existsParamStartsWith(const char* prefix) const;
  /// 1 when the name exists with that value (case ignored unless `caseSensitive`).
  int isValue(const char* name, const char* value) const;
  /// The slot of the name (of the pair, when a value is given), or -1.
  long long getIndex(const char* name, const char* value = nullptr) const;

  // --- Setting ------------------------------------------------------------------------------------------------
  /// Sets the pair. A null value leaves an existing one as it is. With `copy` false the record takes the value, made
  /// by newString, over. 0 for a null or empty name and when memory is short (result "Can't add anymore parameter
  /// the config file. Array was unable to grow").
  int setParam(const char* name, const char* value);
  int setParam(const char* name, char* value, bool copy);
  int setParam(const char* name, int value);
  int setParam(const char* name, long value);
  int setParam(const char* name, unsigned long value);
  int setParam(const char* name, long long value);
  int setParam(const char* name, unsigned long long value);
  int setParam(const char* name, char value);
  int setParam(const char* name, float value);
  int setParam(const char* name, bool value);
  /// Format null: "%.0f" above 999999.0, "%f" below 0.0001, else "%g". At most 63 characters.
  int setParam(const char* name, double value, const char* format = nullptr);
  int setParam(long long name, const char* value);
  int setParam(long long name, int value);
  [[gnu::format(printf, 3, 4)]] int vsetParam(const char* name, const char* format, ...);
  /// Adds one to the value read as an unsigned number, 0 when absent.
  int add_count(const char* name);
  /// Places the pair in order at once, replacing the value when it is there.
  int insertParam(const char* name, const char* value);
  int insertParam(const char* name, int value);
  /// The name is the number, zero-padded to `width` digits when width is 1 or more.
  int insertParam(long long name, const char* value, int width);
  /// Appends to the value, adding the pair when the name is absent.
  int extendParam(const char* name, const char* text);
  /// Replaces the value of a slot by the given text, made by newString, which is freed when there is no such slot.
  void setParam_in_place(long long index, char* value);
  /// Removes the pair (the exact pair when a value is given). 1 when it was there.
  int deleteParam(const char* name, const char* value = nullptr);
  /// Empties a slot; the count stays until shift_down_and_count.
  void deleteParamAt(long long i);
  void shift_down_and_count();
  void trimNameFront();
  void trimNameEnd();
  void trimValueFront();
  void trimValueEnd();
  void sort();
  /// Clears `keepUnsorted` and sorts.
  void sortNow();

  // --- Files --------------------------------------------------------------------------------------------------
  /// A null name is ignored.
  void setFilename(const char* filename);
  /// Reads the file into the record. With `keepBareLines` a line without separator becomes a name with an empty
  /// value. With `onlyName` other lines are skipped, and reading stops at the first (all are taken when
  /// `multiValued`). 0 with the result "Filename is null", "Unable to get Lock on file:" and the reason, or
  /// "Unable to open <path> for reading." and the system's words.
  [[nodiscard]] int readFile(int keepBareLines = 0, const char* onlyName = nullptr);
  /// Writes the record to `path` (null: its own file). 1 also when nothing needed writing; 0 with the words of the
  /// step that failed, the old file then being whole.
  [[nodiscard]] int writeFile(const char* path = nullptr);
  /// The line format over a text in memory, followed by a sort. Returns 1.
  int readFromString(const char* text, int keepBareLines = 0);
  [[nodiscard]] int lock(int wantReason);
  /// Creates the file empty when it is not there. 0: "Unable to open <path> to be created".
  [[nodiscard]] int touch();
  [[nodiscard]] int exists();

  // --- URL-encoded form ---------------------------------------------------------------------------------------
  /// Adds the pairs of "a=1&b=2". 0 for null and empty, else 1.
  int fillFromPost(const char* text, int keepPlus = 0);
  int fillFromPost(std::string_view text, int keepPlus = 0);
  /// The pairs as "a=1&b=2"; with `encode` everything but ASCII letters, control characters and bytes above 0x7F is
  /// escaped. Empty for a record without pairs.
  Text createPostString(int encode) const;

 protected:
  Words words() const override { return {"ConfigFile", "ConfigFile::removeFile(", true, true}; }
  bool takeLine(std::string_view line) override;
  void writeContent(SafeFile& out) const override;

 private:
  struct Pair {
    char* name = nullptr;
    char* value = nullptr;
    std::uint32_t nameLength = 0;
    std::uint32_t valueLength = 0;
    std::uint32_t valueRoom = 0;
    std::string_view nameView() const { return {name, nameLength}; }
    std::string_view valueView() const { return {value, valueLength}; }
    bool isEmpty() const { return name == nullptr; }
  };
  static Pair pairOf(char* name, std::size_t nameLength, char* value, std::size_t valueLength) {
    const auto room = static_cast<std::uint32_t>(valueLength);
    return {name, value, static_cast<std::uint32_t>(nameLength), room, room};
  }
  /// How the lines being read are taken.
  struct Reading {
    bool keepBareLines = false;
    const char* onlyName = nullptr;
    bool insertsPairs = false;
    bool insertsBareLines = false;
    bool active = false;
  };

  /// Appending first and sorting when somebody looks gives the same record as sorting every time, at a thousandth of
  /// the cost; but only where looking up and ordering agree.
  bool ordersLazily() const { return caseSensitive && !numericNames && !keepUnsorted; }
  int compare(const Pair& a, const Pair& b) const;
  void settle() const;
  bool sortPairs();
  void keepLastOfEqualNames();
  const Pair* find(const char* name) const;
  bool stored(std::string_view name, const char* value, std::size_t valueLength, Pair& pair);
  bool replaceValue(Pair& pair, const char* value, std::size_t length);
  int refuseGrowth();
  bool makeRoom();
  int append(const Pair& pair) {
    if ((pairs_ == nullptr || count_ >= capacity_) && !makeRoom()) return refuseGrowth();
    pairs_[count_++] = pair;
    return 1;
  }
  int insertAt(long long place, const Pair& pair);
  long long placeFor(const Pair& pair) const;
  int place(const Pair& pair);
  int insertUnseen(const Pair& pair);
  /// Making room may settle what is there, so the mark is set behind it.
  int appendUnsettled(const Pair& pair) {
    changed = true;
    const int appended = append(pair);
    unsettled_ = true;
    return appended;
  }
  int put(std::string_view name, const char* value, std::size_t valueLength);
  int putLine(std::string_view line, std::size_t separatorAt);
  [[gnu::format(printf, 3, 4)]] int setFormatted(const char* name, const char* format, ...);
  void trimNames(void (*cut)(char*&, std::uint32_t&));
  char* writePostString(char* to, int encode) const;
  static bool holdsLineBreak(std::string_view text);
  std::size_t separatorIn(std::string_view line) const;
  [[nodiscard]] int passesSafetyCheck(const char* path) const;

  Pair* pairs_ = nullptr;
  long long capacity_ = 16;
  mutable long long count_ = 0;
  /// Pairs have been appended whose order and repeats are not settled yet.
  mutable bool unsettled_ = false;
  mutable bool insertedUnseen_ = false;
  mutable long long settledCount_ = 0;
  /// Some text that was stored held a line break; false spares a write its look at each.
  bool mayHoldBreak_ = false;
  TextPool pool_;
  Reading reading_;
};

}  // namespace zvtaskq
