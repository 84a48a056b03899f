// A list of lines: by default a sorted set, with `keepOrder` the lines as they come.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/record/data_file.h"
#include "core/text/text.h"
#include "core/text/text_pool.h"

namespace zvtaskq {

class ConfigFile;

class ListFile : public DataFile {
 public:
  /// An empty list; a null or empty name leaves it without a file.
  explicit ListFile(const char* filename);
  explicit ListFile(std::nullptr_t) : ListFile(static_cast<const char*>(nullptr)) {}
  /// A deep copy of the other's file name, type, lines, owner, group and mode; the other settings as in a new list.
  explicit ListFile(const ListFile* other);
  ~ListFile() override;

  /// How lines compare: 0 text, 1 IPv4 addresses, 2 IPv6 addresses (only unabbreviated ones by number).
  int listType = 0;
  /// Lines stay in the order they come, repeats included.
  bool keepOrder = false;
  /// Lines that begin with "#" or a space are kept.
  bool keepComments = false;

  // --- Contents -----------------------------------------------------------------------------------------------
  int size() const;
  int capacity() const { return capacity_; }
  /// The line in slot i, owned by the list; null outside the slots and for an empty one.
  const char* getElementAt(int i) const;
  /// Ignores a null or empty line, and unless `keepOrder` one that is there already.
  void addElement(const char* line);
  void addElement(std::string_view line);
  void addElement(int n);
  /// Format null: "%.0f" above 999999.0, "%f" below 0.0001, else "%g". At most 63 characters.
  void addElement(double value, const char* format);
  /// Places the line in order at once; an equal one is replaced.
  void insertElement(const char* line);
  /// Replaces slot i, or fills it when it is empty, without sorting.
  void setElement(const char* line, int i);
  void deleteElement(const char* line);
  void deleteIntElement(int n);
  /// Empties slot i. In a sorted list the later lines move up; with `keepOrder` see remove_null_entries.
  void deleteElementAt(int i);
  /// Moves the lines down over empty slots.
  void remove_null_entries();
  /// The slot of the line by binary search, or -1; with `keepOrder` lines may be missed.
  int getIndex(const char* line) const;
  int existElement(const char* line) const { return getIndex(line) >= 0 ? 1 : 0; }
  void trimFront();
  void sort();
  /// Puts the lines in random order.
  void shuffle();
  void fill(const ListFile* other);
  /// addElement of every name of the record.
  void fill_name(const ConfigFile* record);
  void empty();
  /// The bytes that the file will hold.
  long long getDataSize() const;
  void printContents() const;
  /// "ip0=1.2.3.4&ip1=5.6.7.8" for the name "ip", nothing escaped. Null, with the result "No name provided", for a
  /// null name.
  Text createPostString(const char* name);

  // --- Files --------------------------------------------------------------------------------------------------
  /// A null or empty name is refused with an error-log line.
  void setFilename(const char* filename);
  /// Reads the file into the list. 0 in the words of a record's read.
  [[nodiscard]] int readFile();
  /// As a record's write, but a line may hold anything.
  [[nodiscard]] int writeFile(const char* path = nullptr);
  /// Adds every whole line of the text. Returns 1.
  int readFromString(const char* text);
  int fillFromString(const char* text) { return readFromString(text); }
  [[nodiscard]] int lock();
  /// Adds a line as a read does: comments are left out unless `keepComments`.
  void addLine(std::string_view line) { static_cast<void>(takeLine(line)); }

 protected:
  Words words() const override { return {"ListFile", "ListFile::removeFile(", false, false}; }
  bool takeLine(std::string_view line) override;
  void writeContent(SafeFile& out) const override;

 private:
  struct Line {
    char* text = nullptr;
    std::size_t length = 0;
    std::string_view view() const { return {text, length}; }
    bool isEmpty() const { return text == nullptr; }
  };

  int compare(const Line& a, const Line& b) const;
  void settle() const;
  void sortLines();
  void sortAddresses();
  void dropRepeats();
  int placeFor(const Line& line) const;
  bool ensureRoom(int slots);
  bool stored(std::string_view text, Line& line);
  void append(const Line& line);
  void insertAt(int place, const Line& line);
  std::string_view viewAt(int i) const { return lines_[i].view(); }

  Line* lines_ = nullptr;
  int capacity_ = 64;
  int count_ = 0;
  /// Slots in use: more than `count_` after a deletion in a kept order.
  int used_ = 0;
  /// Lines have been appended whose order and repeats are not settled yet.
  mutable bool unsettled_ = false;
  mutable bool insertedUnseen_ = false;
  TextPool pool_;
};

/// Address order: IPv4 texts octet by octet (what does not scan counts as 0), nulls last, empties before nulls.
int ipcomp(const char* a, const char* b);
/// IPv6 texts group by group when both have all eight, else as IPv4.
int ipv6comp(const char* a, const char* b);

}  // namespace zvtaskq
