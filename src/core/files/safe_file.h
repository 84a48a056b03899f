// Opening a file that somebody else may have tampered with, and replacing one in a way that cannot lose the old.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/read/log_mark.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

/// Opens a regular file for reading without following a link at its end, waiting on a FIFO, or touching a device:
/// what was opened is checked afterwards. A link that root made is followed, and one that it leads to by the same rule,
/// since an administrator may have moved the file. Not open (errno says why; EINVAL for what is no regular file) on
/// failure.
Descriptor openRegularFile(const char* path);
/// The same, and what it is.
Descriptor openRegularFile(const char* path, struct stat& what);

/// Opens "<path>.1", the log at `path` as it was before it was put aside or emptied, when it holds what the mark
/// stands for; not open otherwise.
Descriptor openRotated(const char* path, const LogMark& mark);

/// The mode of a temporary file.
inline constexpr mode_t kModeAlone = 0600;

/// The new content of a file, on its way: written to "<path>.temp", which replaces `path` when everything is safe on
/// the disk. Runs under the identity it finds. A ".temp" that is never put in place stays where it is.
class SafeFile {
 public:
  /// `folder`: the file's folder, when somebody has it open already; null opens it.
  explicit SafeFile(const char* path, std::shared_ptr<const Descriptor> folder = nullptr);
  SafeFile(const SafeFile&) = delete;
  SafeFile& operator=(const SafeFile&) = delete;

  /// Makes the temporary file anew, mode 0600, never through a link. 0 with errno.
  [[nodiscard]] int open();
  /// Adds to the content. Errors are kept for `finish`.
  void write(std::string_view text) {
    if (text.size() > kBuffer - used_) drain();
    if (text.size() > kBuffer) return writeThrough(text);
    used_ += text.copy(buffer_.get() + used_, text.size());
  }
  void write(char c) {
    if (used_ == kBuffer) drain();
    buffer_[used_++] = c;
  }
  /// Writes out and flushes to the disk. 0 with errno when any of it failed; `written` says how far it came.
  [[nodiscard]] int finish() { return writeOut() && flush() ? 1 : 0; }
  /// The bytes that reached the temporary file.
  long long written() const { return written_; }
  /// The size of the temporary file as the system sees it, -1 when it cannot tell.
  long long sizeOnDisk() const;
  /// Closes the file, with its outcome checked, renames it onto the path and flushes the folder. 0 with errno.
  [[nodiscard]] int putInPlace();

  // The steps of `finish` and `putInPlace`, for who writes several files at once. 0 with errno.
  /// Gives the buffer's memory back: nothing may be written to this file afterwards.
  [[nodiscard]] int writeOut();
  /// Sets the disk to work on it, without waiting.
  void startFlush() const;
  [[nodiscard]] int flush();
  [[nodiscard]] int rename();
  void flushFolder() const;
  const std::string& folder() const { return place_.folder; }
  const std::shared_ptr<const Descriptor>& openFolder() const { return folder_; }
  std::string path() const { return joined(place_.folder, "/", place_.name); }

  /// The temporary file, for its owner and mode to be set before it is put in place.
  int descriptor() const { return file_.get(); }
  const char* temporaryPath() const { return temporary_.c_str(); }

 private:
  static constexpr std::size_t kBuffer = std::size_t{64} * 1024;

  void drain();
  void writeThrough(std::string_view text);

  PathParts place_;
  std::string temporary_;
  std::string temporaryName_;
  /// Opened once: a folder that is exchanged meanwhile does not get what was meant for another.
  std::shared_ptr<const Descriptor> folder_;
  std::unique_ptr<char[]> buffer_;
  std::size_t used_ = 0;
  Descriptor file_;
  long long written_ = 0;
  int error_ = 0;
};

}  // namespace zvtaskq
