#include "core/record/data_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/files/write_batch.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {
constexpr unsigned kModeWithGroup = 0640;
}  // namespace

DataFile::DataFile(const char* filename) : result(Text::copyOf("")) {
  if (filename != nullptr && *filename != '\0') filename_ = filename;
}

void DataFile::copySettings(const DataFile& other) {
  filename_ = other.getFilename();
  ownerUser_ = other.getUser();
  ownerGroup_ = other.getGroup();
  fileMode = other.fileMode;
}

int DataFile::removeFile(const char* path) {
  const char* own = filename_.orEmpty();
  if (path != nullptr && std::strcmp(path, own) != 0) {
    return fail(result, words().removeRefused, own, ") filename does not match");
  }
  const AsOwner owner(ownerUser_, ownerGroup_);
  if (sys::unlink(own) != 0) {
    const std::string why = std::strerror(errno);
    addResult(result, "<b>Error removing ", own, "</b>");
    return fail(result, why);
  }
  addResult(result, words().className, " ", own, " deleted");
  return 1;
}

int DataFile::lockAs(const char* lockCaller, int wantReason) {
  char reason[kLockReasonSize] = "";
  const AsOwner owner(ownerUser_, ownerGroup_);
  if (getLock(filename_, kLockMaximumAge, lockCaller, reason)) return 1;
  if (wantReason) addResult(result, reason);
  return 0;
}

void DataFile::unlock() {
  const AsOwner owner(ownerUser_, ownerGroup_);
  freeLock(filename_);
}

int DataFile::takeLock(FileLock& lock) const {
  const AsOwner owner(ownerUser_, ownerGroup_);
  return lock.take(filename_, kLockMaximumAge, words().className, nullptr);
}

void DataFile::releaseLock(FileLock& lock) const {
  const AsOwner owner(ownerUser_, ownerGroup_);
  lock.release();
}

int DataFile::takeLock(FileLock& lock, const char* path, const char* lockCaller) {
  char reason[kLockReasonSize] = "";
  if (!useLock || lock.take(path, kLockMaximumAge, lockCaller, reason)) return 1;
  addResult(result, "Unable to get Lock on file:");
  return fail(result, reason);
}

// --- Reading ---------------------------------------------------------------------------------------------------

int DataFile::readLines(const char* lockCaller, long long startOffset) {
  if (filename_.isNull()) return fail(result, "Filename is null");
  const bool wasChanged = changed;
  FileLock lock;
  Descriptor file;
  {
    const AsOwner owner(ownerUser_, ownerGroup_);
    if (!takeLock(lock, filename_, lockCaller)) return 0;
    struct stat what {};
    const int error = openForReading(file, what);
    if (file) {
      readMtime = what.st_mtim.tv_sec;
      readSize = what.st_size;
    } else {
      lock.release();
      addResult(result, "Unable to open ", filename_, " for reading.");
      return fail(result, std::strerror(error));
    }
  }
  LineReader lines(file.get());
  lines.expect(readSize);
  startAt(file.get(), lines, startOffset);
  std::string_view line;
  while (lines.next(line) && takeLine(line)) {
  }
  const int error = errno;
  readMetCr_ = lines.holdsCr();
  {
    const AsOwner owner(ownerUser_, ownerGroup_);
    lock.release();
  }
  if (lines.failed()) {
    addResult(result, "Unable to open ", filename_, " for reading.");
    return fail(result, std::strerror(error));
  }
  if (!wasChanged) changed = false;
  return 1;
}

/// The file and what it is. Not open on failure, whose errno is returned.
int DataFile::openForReading(Descriptor& file, struct stat& what) const {
  file = openRegularFile(filename_, what);
  if (file && what.st_size > mostBytes) {
    file.reset();
    errno = EFBIG;
  } else if (file && !mayBeRead(what)) {
    file.reset();
    errno = ENOENT;
  }
  return errno;
}

bool DataFile::mayBeRead(const struct stat& what) const {
  if (!onlyOwners_ || what.st_uid == 0 || what.st_uid == effectiveIds().user) return true;
  securityLog("%s belongs to uid %u, not to %s: not read", filename_.orEmpty(), what.st_uid, ownerUser_.orEmpty());
  return false;
}

void DataFile::startAt(int fd, LineReader& lines, long long startOffset) const {
  if (startOffset == 0) return;
  const long long distance = startOffset < 0 ? -startOffset : startOffset;
  if (readSize <= distance) {
    debug(100, "Seek value of %lld is larger than the filesize (%lld), skipping the seek for %s.", startOffset,
          readSize, filename_.orEmpty());
    return;
  }
  if (::lseek(fd, startOffset, startOffset > 0 ? SEEK_SET : SEEK_END) < 0) {
    debug(100, "ConfigFile::readFile(%s): start_point=%lld fseek error: %s", filename_.orEmpty(), startOffset,
          std::strerror(errno));
    return;
  }
  lines.skipToBoundary();
}

// --- Writing ---------------------------------------------------------------------------------------------------

int DataFile::writeLines(const char* path, const char* lockCaller, long long expectedSize) {
  const AsOwner owner(ownerUser_, ownerGroup_);
  if (leftAlone(path)) return 1;
  FileLock lock;
  if (!takeLock(lock, path, lockCaller)) return 0;
  const int written = writeOwned(path, expectedSize);
  lock.release();
  return written;
}

bool DataFile::leftAlone(const char* path) {
  struct stat now {};
  if (changed || filename_.view() != path || ::stat(path, &now) != 0) return false;
  if (now.st_mtim.tv_sec == readMtime && now.st_size == readSize) {
    addResult(result, "No need to write ", path, " as it hasn't changed");
    debug(2500, "No need to write %s as it hasn't changed", path);
    return true;
  }
  if (refuseIfChangedOnDisk) {
    errorLogAndDebug(2500, "File %s has been written to after this process read it.  Not going to overwrite it.", path);
    addResult(result, "File ", path, " has been written to after this process read it.  Not going to overwrite it.");
    return true;
  }
  if (words().tellsOverwrite) {
    errorLogAndDebug(
        2500, "ConfigFile::writeFile(%s) : Timestamp from when it was read is different, overwriting anyway", path);
  }
  return false;
}

int DataFile::writeOwned(const char* path, long long expectedSize) {
  auto file = std::make_unique<SafeFile>(path, batch == nullptr ? nullptr : batch->folderOf(path));
  if (!file->open()) {
    const std::string why = std::strerror(errno);
    addResult(result, "Unable to open file for writing");
    return fail(result, why);
  }
  writeContent(*file);
  const bool isWritten = (batch == nullptr ? file->finish() : file->writeOut()) != 0;
  if (!checkWritten(*file, path, expectedSize, isWritten)) {
    static_cast<void>(removeFile(file->temporaryPath()));
    return 0;
  }
  // First, so that nobody meets it at its path while it is not yet his.
  giveToOwner(file->descriptor());
  if (batch == nullptr) return putInPlace(*file, path);
  batch->add(std::move(file));
  return 1;
}

int DataFile::checkWritten(SafeFile& file, const char* path, long long expectedSize, bool isWritten) {
  const long long written = file.written();
  if (!isWritten || written < expectedSize) {
    const bool diskFull = errno == ENOSPC;
    addResult(result, "Error writing ", path, ".  Disk might be full.");
    if (words().debugsShortWrite) {
      errorLogAndDebug(10, "*** Error while writing %s : only wrote %lld of %lld bytes. Disk full??\n\n", path, written,
                       expectedSize);
    } else {
      errorLog("*** Error while writing %s : only wrote %d of %d bytes. Disk full??\n\n", path,
               static_cast<int>(written), static_cast<int>(expectedSize));
    }
    if (diskFull && words().debugsShortWrite) {
      errorLogAndDebug(10, "*** errno == ENOSPC : disk is full **** (%s)\n", path);
    } else if (diskFull) {
      errorLog("*** errno == ENOSPC : disk is full **** (%s)\n", path);
    }
    return 0;
  }
  const long long onDisk = file.sizeOnDisk();
  if (expectedSize != 0 && onDisk <= 0) {
    errorLog("unable to stat %s for filesize after write: euid:%d", file.temporaryPath(),
             static_cast<int>(::geteuid()));
    return fail(result, "Unable to stat ", file.temporaryPath(), " for filesize after write");
  }
  if (onDisk < expectedSize) {
    errorLog("*** Error while writing %s : only wrote %lld of %lld bytes. Disk full?? (stat of %s)\n\n", path, onDisk,
             expectedSize, file.temporaryPath());
    return fail(result, "Error writing ", path,
                ".  Disk might be full.  File size after write is less than the number of bytes written.");
  }
  return 1;
}

int DataFile::putInPlace(SafeFile& file, const char* path) {
  if (file.putInPlace()) return 1;
  const std::string why = std::strerror(errno);
  errorLog("Unable to move %s to %s : %s", file.temporaryPath(), path, why.c_str());
  return fail(result, "Unable to move ", file.temporaryPath(), " to ", path, " : ", why);
}

int DataFile::createEmpty(const char* path) const {
  const Descriptor file(sys::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!file) return 0;
  giveToOwner(file.get());
  return 1;
}

/// By descriptor, so that no file swapped in at the path is given away.
void DataFile::giveToOwner(int fd) const {
  const FailScope scope("safe_write");
  if (ownerGroup_.isNull()) {
    // It was made with the mode of one that is nobody else's.
    if (fileMode != 0 && fileMode != kModeAlone) static_cast<void>(sys::fchmod(fd, fileMode));
    return;
  }
  // Only root may give a file to a group that its owner is not in.
  const AsRoot root;
  const unsigned user = ownerUser_.isNull() ? static_cast<unsigned>(-1) : getUID(ownerUser_);
  const unsigned group = getGID(ownerGroup_, 0);
  if (user == kUnknownId || group == kUnknownId || sys::fchown(fd, user, group) != 0) {
    errorLog("Unable to give %s to %s:%s : %s", filename_.orEmpty(), ownerUser_.orEmpty(), ownerGroup_.orEmpty(),
             std::strerror(errno));
  }
  static_cast<void>(sys::fchmod(fd, fileMode == 0 ? kModeWithGroup : fileMode));
}

}  // namespace zvtaskq
