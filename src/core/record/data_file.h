// What records and lists have in common: the file behind them, who may touch it, its lock, and the safe write.
//
// A read and a write each take the owner's identity, hold the lock file (when `useLock`), and end at nobody with the
// lock freed, on every way out. A write goes to "<path>.temp", is checked, flushed and renamed over the old file, so
// that a failure of any step leaves the old file whole.
#pragma once

#include <sys/stat.h>

#include <limits>
#include <string_view>

#include "core/text/text.h"

namespace zvtaskq {

class Descriptor;
class FileLock;
class LineReader;
class SafeFile;
class WriteBatch;

class DataFile {
 public:
  DataFile(const DataFile&) = delete;
  DataFile& operator=(const DataFile&) = delete;
  virtual ~DataFile() = default;

  /// What happened, in lines for people, each ended by "<br>\n".
  Text result;
  /// Set by every modifying operation; cleared by a successful read that began unchanged.
  bool changed = false;
  /// A write refuses (and reports success) when the file changed on disk since it was read.
  bool refuseIfChangedOnDisk = false;
  /// The file's modification time (seconds since the epoch) and size (bytes) when it was last read; 0 before.
  long long readMtime = 0;
  long long readSize = 0;
  /// A larger file (bytes) is not read.
  long long mostBytes = std::numeric_limits<long long>::max();
  /// Writes leave it to this batch (not owned, may be null) to put the file in place; what fails then is told by it.
  WriteBatch* batch = nullptr;
  /// Reads and writes hold the lock file while they work.
  bool useLock = true;
  /// Permission bits given to the written file; 0 means 0640 with an owner group, 0600 without.
  unsigned fileMode = 0;

  /// The path; null when none was given. Owned by the object.
  const char* getFilename() const { return filename_; }
  /// The Unix user whose effective identity every file access takes; null means that none is taken. At first "nobody".
  const char* getUser() const { return ownerUser_; }
  /// The account whose primary group is taken with the user, and the group given to a written file; null for none.
  const char* getGroup() const { return ownerGroup_; }
  void setUser(const char* user) { ownerUser_ = user; }
  void setGroup(const char* group) { ownerGroup_ = group; }
  /// `setUser`, for a file whose folder others may create in: one there that belongs neither to the user nor to root
  /// was planted, and counts as missing, with one security-log line.
  void belongsTo(const char* user) {
    setUser(user);
    onlyOwners_ = true;
  }

  /// Deletes the file under the owner identity. A given path must be the object's own. 1 on success; 0 with the
  /// result "<class>::removeFile(<filename>) filename does not match" or "<b>Error removing <path></b>" and why.
  [[nodiscard]] int removeFile(const char* path = nullptr);
  /// Frees the lock on the file, whoever took it, under the owner identity.
  void unlock();
  /// Takes the lock on the file, under the owner identity, for as long as `lock` holds it. 1 when it is held.
  [[nodiscard]] int takeLock(FileLock& lock) const;
  /// Frees that lock again, under the owner identity, unless it was broken meanwhile and is somebody else's by now.
  void releaseLock(FileLock& lock) const;

 protected:
  explicit DataFile(const char* filename);

  /// The words in which the two containers differ.
  struct Words {
    const char* className;
    /// How a refused delete begins.
    const char* removeRefused;
    /// A write over a file that changed since it was read is told in the logs.
    bool tellsOverwrite;
    /// A write that fell short is also shown as debug output.
    bool debugsShortWrite;
  };
  virtual Words words() const = 0;

  /// The shared read. Each line (without its line feed) goes to `takeLine`, which answers whether to read on.
  [[nodiscard]] int readLines(const char* lockCaller, long long startOffset);
  virtual bool takeLine(std::string_view line) = 0;
  /// Whether the read that was last met a CR. One at a line's end is not part of the line.
  bool readMetCr() const { return readMetCr_; }

  /// The shared write of `expectedSize` bytes, which `writeContent` puts out.
  [[nodiscard]] int writeLines(const char* path, const char* lockCaller, long long expectedSize);
  virtual void writeContent(SafeFile& out) const = 0;

  /// Whether a file of that owner may be read, under the owner identity of the moment.
  bool mayBeRead(const struct stat& what) const;

  /// Takes the lock on the file under the owner identity. With `wantReason` a failure adds its reason to the result.
  [[nodiscard]] int lockAs(const char* lockCaller, int wantReason);

  /// Makes the file, empty, with the documented owner and mode, under the identity it finds. 0 with errno.
  [[nodiscard]] int createEmpty(const char* path) const;

  void replaceFilename(const char* filename) { filename_ = filename; }
  void copySettings(const DataFile& other);

 private:
  /// Whether the write is over before it began, because of what stands on the disk.
  bool leftAlone(const char* path);
  [[nodiscard]] int takeLock(FileLock& lock, const char* path, const char* lockCaller);
  [[nodiscard]] int writeOwned(const char* path, long long expectedSize);
  [[nodiscard]] int checkWritten(SafeFile& file, const char* path, long long expectedSize, bool isWritten);
  [[nodiscard]] int putInPlace(SafeFile& file, const char* path);
  void giveToOwner(int fd) const;
  int openForReading(Descriptor& file, struct stat& what) const;
  void startAt(int fd, LineReader& lines, long long startOffset) const;

  bool readMetCr_ = false;
  Text filename_;
  Text ownerUser_ = Text::copyOf("nobody");
  Text ownerGroup_;
  bool onlyOwners_ = false;
};

}  // namespace zvtaskq
