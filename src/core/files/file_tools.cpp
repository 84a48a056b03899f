#include "core/files/file_tools.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/files/bounded_copy.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/random.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBlock = 128UL * 1024;
constexpr off_t kMostTail = 8L << 20;

/// Opens the file itself, when it is a regular one.
Descriptor openItself(const char* path, struct stat& what) {
  Descriptor file(sys::open(path == nullptr ? "" : path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  if (!file || sys::fstat(file.get(), what) != 0) return Descriptor();
  if (S_ISREG(what.st_mode)) return file;
  errno = EINVAL;
  return Descriptor();
}

struct RenameError {
  int number;
  const char* sentence;
};
constexpr const char* kNotEmpty =
    "newpath is a nonempty directory, that is, contains entries other than \".\" and \"..\".";
constexpr RenameError kRenameErrors[] = {
    {EPERM,
     "The directory containing oldpath has the sticky bit (S_ISVTX) set and the process's effective user ID is neither "
     "the user ID of the file to be deleted nor that of the directory containing it, and the process is not "
     "privileged; "
     "or newpath is an existing file and the directory containing it has the sticky bit set and the process's "
     "effective "
     "user ID is neither the user ID of the file to be replaced nor that of the directory containing it, and the "
     "process is not privileged; or the filesystem containing oldpath does not support renaming of the type "
     "requested."},
    {ENOENT,
     "The link named by oldpath does not exist; or, a directory component in newpath does not exist; or, oldpath or "
     "newpath is an empty string."},
    {ENOMEM, "Insufficient kernel memory was available."},
    {EACCES,
     "Write permission is denied for the directory containing oldpath or newpath, or, search permission is denied for "
     "one of the directories in the path prefix of oldpath or newpath, or oldpath is a directory and does not allow "
     "write permission (needed to update the .. entry)."},
    {EFAULT, "oldpath or newpath points outside your accessible address space."},
    {EBUSY,
     "The rename fails because oldpath or newpath is a directory that is in use by some process (perhaps as current "
     "working directory, or as root directory, or because it was open for reading) or is in use by the system (for "
     "example as a mount point), while the system considers this an error."},
    {EEXIST, kNotEmpty},
    {ENOTEMPTY, kNotEmpty},
    {EXDEV, "oldpath and newpath are not on the same filesystem."},
    {ENOTDIR,
     "A component used as a directory in oldpath or newpath is not, in fact, a directory. Or, oldpath is a directory, "
     "and newpath exists but is not a directory."},
    {EISDIR, "newpath is an existing directory, but oldpath is not a directory."},
    {EINVAL,
     "The new pathname contained a path prefix of the old, or, more generally, an attempt was made to make a directory "
     "a subdirectory of itself."},
    {ENOSPC, "The device containing the file has no room for the new directory entry."},
    {EROFS, "The file is on a read-only filesystem."},
    {EMLINK,
     "oldpath already has the maximum number of links to it, or it was a directory and the directory containing "
     "newpath "
     "has the maximum number of links."},
    {ENAMETOOLONG, "oldpath or newpath was too long."},
    {ELOOP, "Too many symbolic links were encountered in resolving oldpath or newpath."},
};

const char* sentenceOf(int error) {
  const auto* found = std::find_if(std::begin(kRenameErrors), std::end(kRenameErrors),
                                   [&](const RenameError& known) { return known.number == error; });
  return found == std::end(kRenameErrors) ? "" : found->sentence;
}

int refusesHardLinks(const char* from, const char* to) {
  const int fromLinks = isHardLink(from);
  const int toLinks = isHardLink(to);
  if (fromLinks == 0 && toLinks == 0) return 0;
  refusalLog(10, "HardLink found on %s (%d links) or %s (%d links).  Was attempting to rename.", from, fromLinks, to,
             toLinks);
  if (fromLinks != 0) addResult(systemResult(), from, " is a hard link.  Will not rename to ", to);
  addResult(systemResult(), to, " is a hard link. Will not rename from ", from);
  return 1;
}

/// A rename between two folders that are opened once.
class Move {
 public:
  Move(const char* from, const char* to)
      : from_(from),
        to_(to),
        source_(sys::open(from_.folder.c_str(), O_PATH | O_DIRECTORY)),
        target_(source_ ? sys::open(to_.folder.c_str(), O_PATH | O_DIRECTORY) : -1) {}

  bool there() const {
    return target_ && sys::renameat(source_.get(), from_.name.c_str(), target_.get(), to_.name.c_str()) == 0;
  }
  bool back() const { return sys::renameat(target_.get(), to_.name.c_str(), source_.get(), from_.name.c_str()) == 0; }
  bool broughtHardLink() const {
    struct stat what {};
    return sys::lstatAt(target_.get(), to_.name.c_str(), what) == 0 && S_ISREG(what.st_mode) && what.st_nlink > 1;
  }

 private:
  PathParts from_, to_;
  Descriptor source_, target_;
};

/// Where the last `lines` lines of a text begin; npos when they begin before it.
std::size_t startOfLast(std::string_view text, int lines) {
  // A line feed at the very end ends the last line; it begins none.
  std::size_t end = text.ends_with('\n') ? text.size() - 1 : text.size();
  for (int left = lines; left > 0; --left) {
    if (end == 0) return std::string_view::npos;
    const std::size_t feed = text.rfind('\n', end - 1);
    if (feed == std::string_view::npos) return std::string_view::npos;
    if (left == 1) return feed + 1;
    end = feed;
  }
  return text.size();
}

bool contains(std::string_view line, std::string_view text, int ignoreCase) {
  if (!ignoreCase) return line.find(text) != std::string_view::npos;
  const auto same = [](char a, char b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return lower(a) == lower(b);
  };
  return std::search(line.begin(), line.end(), text.begin(), text.end(), same) != line.end() || text.empty();
}

}  // namespace

int copyFile(const char* from, const char* to, unsigned mode) {
  struct stat what {};
  const Descriptor source = openItself(from, what);
  if (!source) return 0;
  if (to == nullptr || *to == '\0') {
    errno = ENOENT;
    return 0;
  }
  const PathParts place(to);
  const Descriptor folder(sys::open(place.folder.c_str(), O_PATH | O_DIRECTORY));
  if (!folder) return 0;
  const std::string temporary = joined(place.name, ".", getRandText(12));
  Descriptor target(sys::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!target) return 0;
  const mode_t bits = static_cast<mode_t>(mode != 0 ? mode : what.st_mode & 0777);
  const bool whole = copyContent(source.get(), target.get(), what.st_size, LLONG_MAX) &&
                     sys::fchmod(target.get(), bits) == 0 && sys::fsync(target.get()) == 0 && target.close() == 0;
  if (whole && sys::renameat(folder.get(), temporary.c_str(), folder.get(), place.name.c_str()) == 0) {
    syncFolder(folder.get());
    return 1;
  }
  const int error = errno;
  static_cast<void>(sys::unlinkat(folder.get(), temporary.c_str(), 0));
  errno = error;
  return 0;
}

int renameFile(const char* from, const char* to, int checkHardLinks) {
  Text& result = systemResult();
  result = "";
  if (from == nullptr || to == nullptr || *from == '\0' || *to == '\0') {
    return fail(result, "One of the paths was empty or null");
  }
  const bool checks = checkHardLinks && effectiveIds().user == 0;
  if (checks && refusesHardLinks(from, to)) return 0;
  const Move move(from, to);
  if (move.there()) {
    // What was put in its place since the look goes back.
    if (checks && move.broughtHardLink() && move.back()) {
      static_cast<void>(refusesHardLinks(from, to));
      return 0;
    }
    addResult(result, "File successfully renamed");
    return 1;
  }
  const int error = errno;
  addResult(result, "Unable to move ", from, " to ", to, ": ", sentenceOf(error));
  errno = error;
  return 0;
}

int tail(const char* path, int lines, std::string& out) {
  out.clear();
  const Descriptor file = openRegularFile(path == nullptr ? "" : path);
  struct stat what {};
  if (!file || sys::fstat(file.get(), what) != 0) return 0;
  // Read from the end, in ever longer pieces, until the piece holds enough lines.
  for (off_t length = static_cast<off_t>(kBlock);; length *= 4) {
    length = std::min({length, what.st_size, kMostTail});
    out.resize(static_cast<std::size_t>(length));
    if (::lseek(file.get(), what.st_size - length, SEEK_SET) < 0) break;
    std::size_t got = 0;
    while (got < out.size()) {
      const ssize_t more = sys::read(file.get(), out.data() + got, out.size() - got);
      if (more <= 0) break;
      got += static_cast<std::size_t>(more);
    }
    out.resize(got);
    const std::size_t start = startOfLast(out, lines);
    if (start != std::string_view::npos) out.erase(0, start);
    if (start != std::string_view::npos || length == what.st_size || length == kMostTail) return 1;
  }
  out.clear();
  return 0;
}

int grep(const char* path, const char* text, std::string& out, int ignoreCase, std::size_t mostBytes) {
  out.clear();
  const Descriptor file = openRegularFile(path == nullptr ? "" : path);
  if (!file) return -1;
  const std::string_view wanted = text == nullptr ? std::string_view() : std::string_view(text);
  LineReader reader(file.get());
  int count = 0;
  std::string_view line;
  while (reader.next(line)) {
    if (!contains(line, wanted, ignoreCase)) continue;
    ++count;
    if (mostBytes != 0 && out.size() + line.size() + 1 > mostBytes) continue;
    out.append(line);
    out += '\n';
  }
  return reader.failed() ? -1 : count;
}

}  // namespace zvtaskq
