#include "core/files/line_edit.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr mode_t kNewMode = 0640;
constexpr mode_t kPermissions = 0777;

/// A file as it was read.
struct Content {
  bool exists = false;
  std::string text;
  struct stat what {};
};

/// The file that is meant: what a link of root's stands for is replaced there, not the link.
std::string placeOf(const std::string& path) {
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0 || !S_ISLNK(what.st_mode) || what.st_uid != 0) return path;
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  return real == nullptr ? path : std::string(real.get());
}

int readAs(const std::string& path, Content& content, Text& result) {
  const Descriptor file = openRegularFile(path.c_str());
  if (!file && (errno == ENOENT || errno == ENOTDIR)) return 1;
  if (!file || sys::fstat(file.get(), content.what) != 0 || !sys::readAll(file.get(), content.text, kMostEdited)) {
    const char* why = errno == ELOOP    ? "it is a link"
                      : errno == EINVAL ? "it is no regular file"
                                        : std::strerror(errno);
    return fail(result, "Unable to read ", path, ": ", why);
  }
  content.exists = true;
  return 1;
}

/// Gives the file that is being written to whom it belonged, where that is another than who writes it.
bool giveTo(int fd, Ids owner, mode_t mode) {
  struct stat what {};
  if (sys::fchmod(fd, mode) != 0 || sys::fstat(fd, what) != 0) return false;
  if (what.st_uid == owner.user && what.st_gid == owner.group) return true;
  const AsRoot root;
  return sys::fchown(fd, owner.user, owner.group) == 0;
}

int writeAs(const std::string& path, std::string_view text, Ids owner, mode_t mode, Text& result) {
  SafeFile file(path.c_str());
  bool written = file.open() != 0;
  if (written) {
    file.write(text);
    written = file.finish() && giveTo(file.descriptor(), owner, mode) && file.putInPlace();
  }
  if (written) return 1;
  const std::string why = std::strerror(errno);
  if (file.descriptor() >= 0) static_cast<void>(sys::unlink(file.temporaryPath()));
  return fail(result, "Unable to write ", path, ": ", why);
}

template <class Look>
void eachLine(std::string_view rest, Look look) {
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    const bool isWhole = end != std::string_view::npos;
    look(rest.substr(0, end), isWhole);
    rest.remove_prefix(isWhole ? end + 1 : rest.size());
  }
}

std::string edited(std::string_view text, const LineEdit& edit, std::string_view added) {
  std::string out;
  out.reserve(text.size() + added.size());
  std::string instead;
  eachLine(text, [&](std::string_view line, bool isWhole) {
    const LineFate fate = edit(line, instead);
    if (fate == LineFate::drop) return;
    out.append(fate == LineFate::replace ? std::string_view(instead) : line);
    if (isWhole) out.push_back('\n');
  });
  if (!added.empty() && !out.empty() && out.back() != '\n') out.push_back('\n');
  return out.append(added);
}

}  // namespace

int editLines(const std::string& path, Ids owner, const LineEdit& edit, std::string_view added, Text& result) {
  const AsUser user(owner);
  if (!user.taken()) return fail(result, "Unable to work as the owner of ", path);
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0 && (errno == ENOTDIR || (errno == ENOENT && added.empty()))) return 1;
  FileLock lock;
  char reason[kLockReasonSize] = "";
  if (!lock.take(path.c_str(), kLockMaximumAge, "editLines", reason)) {
    return fail(result, "Unable to get Lock on file ", path, ": ", reason);
  }
  const std::string place = placeOf(path);
  Content before;
  if (!readAs(place, before, result)) return 0;
  const std::string after = edited(before.text, edit, added);
  if (after == before.text) return 1;
  if (!before.exists) return writeAs(place, after, owner, kNewMode, result);
  return writeAs(place, after, {before.what.st_uid, before.what.st_gid}, before.what.st_mode & kPermissions, result);
}

int readLinesOf(const std::string& path, Ids owner, const std::function<void(std::string_view)>& look, Text& result) {
  std::string text;
  if (!readWhole(path, owner, text, result)) return 0;
  eachLine(text, [&](std::string_view line, bool) { look(line); });
  return 1;
}

int writeWhole(const std::string& path, Ids owner, std::string_view content, mode_t mode, Text& result) {
  const AsUser user(owner);
  return user.taken() ? writeAs(path, content, owner, mode, result)
                      : fail(result, "Unable to work as the owner of ", path);
}

int readWhole(const std::string& path, Ids owner, std::string& content, Text& result) {
  const AsUser user(owner);
  Content file;
  if (!user.taken()) return fail(result, "Unable to work as the owner of ", path);
  if (!readAs(path, file, result)) return 0;
  content = std::move(file.text);
  return 1;
}

}  // namespace zvtaskq
