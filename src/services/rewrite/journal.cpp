#include "services/rewrite/journal.h"

#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "core/panel/state_folder.h"
#include "core/panel/task.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/tree/folder_reader.h"
#include "services/rewrite/candidate.h"

namespace zvtaskq {

namespace {

constexpr const char* kStateFolder = "rewrites";
constexpr const char* kScope = "rewrite";
constexpr const char* kLockEnding = ".lock";
constexpr const char* kCandidatesEnding = ".candidates";
constexpr const char* kChangeEnding = ".change";
constexpr const char* kTemporaryEnding = ".temp";
constexpr std::string_view kPut = "put ";
constexpr std::string_view kRemove = "remove ";
constexpr std::string_view kQueue = "queue ";
constexpr int kBetweenTries = 100;
constexpr std::size_t kLongestJournal = 256UL << 20;

int failWith(Text& result, const char* what, const std::string& path) {
  const std::string why = std::strerror(errno);
  return fail(result, what, path, ": ", why);
}

template <class Take>
void eachLine(std::string_view rest, Take take) {
  // A line that was never ended was never meant.
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    take(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
}

/// The content of a file of the state folder; empty when there is none. False with errno when it cannot be read.
bool readState(int folder, const std::string& name, std::string& text) {
  const Descriptor file(sys::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  if (!file) return errno == ENOENT;
  return sys::readAll(file.get(), text, kLongestJournal) != 0;
}

bool isGone(int outcome) {
  return outcome == 0 || errno == ENOENT;
}

}  // namespace

RewriteJournal::RewriteJournal(std::string name) : name_(std::move(name)) {}

RewriteJournal::~RewriteJournal() {
  const AsRoot root;
  if (candidates_) takeCandidatesAway();
}

int RewriteJournal::begin(int seconds, Text& result) {
  state_ = openStateFolder(kStateFolder);
  if (!state_) return failWith(result, "Unable to open ", stateFile(kStateFolder));
  if (!lock(seconds, result) || !recover(result)) return 0;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW;
  const std::string notes = name_ + kCandidatesEnding;
  candidates_ = Descriptor(sys::openat(state_.get(), notes.c_str(), kFlags, 0600));
  return candidates_ ? 1 : failWith(result, "Unable to open ", notes);
}

int RewriteJournal::lock(int seconds, Text& result) {
  const std::string file = joined(name_, kLockEnding);
  lock_ = Descriptor(sys::openat(state_.get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
  if (!lock_) return failWith(result, "Unable to open ", file);
  const std::time_t end = std::time(nullptr) + seconds;
  while (sys::flockNow(lock_.get(), LOCK_EX) != 0) {
    if (errno != EWOULDBLOCK) return failWith(result, "Unable to lock ", file);
    if (std::time(nullptr) >= end) return fail(result, "another run is rewriting it");
    sleepSafely(kBetweenTries);
  }
  return 1;
}

int RewriteJournal::recover(Text& result) {
  std::string change;
  if (!readState(state_.get(), name_ + kChangeEnding, change)) return failWith(result, "Unable to read ", name_);
  if (!change.empty() && !carryOut(change)) return fail(result, "an earlier change could not be ended");
  takeCandidatesAway();
  return 1;
}

int RewriteJournal::folderOf(const std::string& folder) {
  if (folder_ && folder == folderPath_) return folder_.get();
  folder_ = Descriptor(sys::open(folder.c_str(), O_RDONLY | O_DIRECTORY));
  folderPath_ = folder;
  struct stat what {};
  if (!folder_ || sys::fstat(folder_.get(), what) != 0) return -1;
  Descriptor& flushed = toFlush_[what.st_dev];
  if (!flushed) flushed = Descriptor(sys::open(folder.c_str(), O_RDONLY | O_DIRECTORY));
  return folder_.get();
}

int RewriteJournal::noteCandidate(const std::string& path) {
  const std::string line = path + "\n";
  return sys::writeAll(candidates_.get(), line) == line.size() ? 1 : 0;
}

int RewriteJournal::stage(const FileToPlace& file, Text& result) {
  const FailScope scope(kScope);
  const PathParts parts(file.path);
  const std::string name = parts.name + kCandidateEnding;
  const int folder = folderOf(parts.folder);
  if (folder < 0 || !noteCandidate(file.path)) return failWith(result, "Unable to write ", file.path);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  Descriptor candidate(sys::openat(folder, name.c_str(), kFlags, 0600));
  // What stands there is an earlier candidate, or was planted.
  if (!candidate && errno == EEXIST && sys::unlinkat(folder, name.c_str(), 0) == 0) {
    candidate = Descriptor(sys::openat(folder, name.c_str(), kFlags, 0600));
  }
  const bool isWritten = candidate && sys::writeAll(candidate.get(), file.text) == file.text.size() &&
                         sys::fchown(candidate.get(), file.owner.user, file.owner.group) == 0 &&
                         sys::fchmod(candidate.get(), file.mode) == 0 && candidate.close() == 0;
  return isWritten ? 1 : failWith(result, "Unable to write ", file.path);
}

void RewriteJournal::discard(const std::string& path) {
  const PathParts parts(path);
  const int folder = folderOf(parts.folder);
  if (folder >= 0) static_cast<void>(sys::unlinkat(folder, (parts.name + kCandidateEnding).c_str(), 0));
}

void RewriteJournal::takeCandidatesAway() {
  std::string paths;
  const std::string notes = name_ + kCandidatesEnding;
  if (!readState(state_.get(), notes, paths)) return;
  eachLine(paths, [&](std::string_view path) { discard(std::string(path)); });
  takeNotesAway();
  candidates_.reset();
}

void RewriteJournal::takeNotesAway() {
  static_cast<void>(sys::unlinkat(state_.get(), joined(name_, kChangeEnding, kTemporaryEnding).c_str(), 0));
  static_cast<void>(sys::unlinkat(state_.get(), (name_ + kCandidatesEnding).c_str(), 0));
}

int RewriteJournal::writeChange(const std::string& change, Text& result) {
  const std::string name = name_ + kChangeEnding;
  const std::string temporary = name + kTemporaryEnding;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW;
  Descriptor file(sys::openat(state_.get(), temporary.c_str(), kFlags, 0600));
  const bool isSafe = file && sys::writeAll(file.get(), change) == change.size() && sys::fsync(file.get()) == 0 &&
                      file.close() == 0 &&
                      sys::renameat(state_.get(), temporary.c_str(), state_.get(), name.c_str()) == 0;
  if (!isSafe) return failWith(result, "Unable to write ", name);
  syncFolder(state_.get());
  return 1;
}

int RewriteJournal::commit(const std::vector<std::string>& put, const std::vector<std::string>& remove,
                           const FollowUp& followUp, Text& result) {
  const FailScope scope(kScope);
  std::string change;
  for (const std::string& path : put) change.append(kPut).append(path) += '\n';
  for (const std::string& path : remove) change.append(kRemove).append(path) += '\n';
  if (!followUp.action.empty()) change.append(kQueue).append(joined(followUp.action, " ", followUp.value, "\n"));
  for (const auto& [device, folder] : toFlush_) {
    if (sys::syncfs(folder.get()) != 0) return failWith(result, "Unable to flush ", name_);
  }
  if (!writeChange(change, result)) return 0;
  // From here on it counts: no candidate is taken away any more.
  candidates_.reset();
  const int done = carryOut(change);
  if (done) takeNotesAway();
  return 1;
}

int RewriteJournal::doStep(const std::string& path, bool isPut) {
  const PathParts parts(path);
  const int folder = folderOf(parts.folder);
  const std::string candidate = parts.name + kCandidateEnding;
  // A candidate that is gone was put in place before; a folder that is gone has nothing to be put into.
  const bool isDone = folder < 0 ? errno == ENOENT
                      : isPut    ? isGone(sys::renameat(folder, candidate.c_str(), folder, parts.name.c_str()))
                                 : isGone(sys::unlinkat(folder, parts.name.c_str(), 0));
  if (!isDone) errorLog("Unable to change %s: %s", path.c_str(), std::strerror(errno));
  return isDone ? 1 : 0;
}

int RewriteJournal::carryOut(std::string_view change) {
  const FailScope scope(kScope);
  int done = 1;
  std::string followUp;
  eachLine(change, [&](std::string_view line) {
    if (line.starts_with(kPut)) done &= doStep(std::string(line.substr(kPut.size())), true);
    if (line.starts_with(kRemove)) done &= doStep(std::string(line.substr(kRemove.size())), false);
    if (line.starts_with(kQueue)) followUp = line.substr(kQueue.size());
  });
  if (!done) return 0;
  for (const auto& [device, folder] : toFlush_) static_cast<void>(sys::syncfs(folder.get()));
  const std::size_t blank = followUp.find(' ');
  if (blank != std::string::npos) {
    const AsRoot root;
    queueTask(followUp.substr(0, blank).c_str(), followUp.substr(blank + 1).c_str());
  }
  return sys::unlinkat(state_.get(), (name_ + kChangeEnding).c_str(), 0) == 0 ? 1 : 0;
}

void finishKilledRewrites() {
  const AsRoot root;
  const Descriptor state = openStateFolder(kStateFolder);
  if (!state) return;
  FolderReader entries(state.get());
  if (!entries) return;
  while (const dirent* entry = entries.next()) {
    const std::string_view name = entry->d_name;
    if (!name.ends_with(kCandidatesEnding) && !name.ends_with(kChangeEnding)) continue;
    RewriteJournal journal(std::string(name.substr(0, name.rfind('.'))));
    Text result;
    journal.state_ = openStateFolder(kStateFolder);
    if (!journal.state_ || !journal.lock(0, result)) continue;
    if (!journal.recover(result)) errorLog("%s: %s", journal.name_.c_str(), result.orEmpty());
  }
}

}  // namespace zvtaskq
