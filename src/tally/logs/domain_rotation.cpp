#include "tally/logs/domain_rotation.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <string>
#include <vector>

#include "account/model/user_folder.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "tally/logs/month_archive.h"
#include "tally/logs/old_archives.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr const char* kEndings[] = {".log", ".error.log"};
constexpr long long kHalfDay = 12 * 3600;
/// Seconds without a write after which a log counts as left, where the file system cannot tell.
constexpr long long kLongQuiet = 3600;
constexpr mode_t kLogFolderMode = 0700;

/// The member name: when the last line was written, local time, to the millisecond.
std::string stampOf(const struct stat& what) {
  std::tm when{};
  ::localtime_r(&what.st_mtim.tv_sec, &when);
  char text[64];
  std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d-%03ld", when.tm_year + 1900, when.tm_mon + 1,
                when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec, what.st_mtim.tv_nsec / 1'000'000);
  return text;
}

/// Whether no process has the log open for writing. Runs as root.
bool isLeft(const Descriptor& log, const struct stat& what) {
  const ReadLease lease(log.get());
  if (lease.granted()) return true;
  return !lease.refused() && static_cast<long long>(std::time(nullptr)) - what.st_mtim.tv_sec > kLongQuiet;
}

/// The places of one log, and what waits in them.
class Waiting {
 public:
  Waiting(const Descriptor& folder, const WebLog& log, const std::string& ending)
      : folder_(folder.get()), log_(log), ending_(ending) {}

  /// The current log itself becomes one that waits, in the first place when that is free. Runs as root.
  void putCurrentAside() const {
    struct stat what {};
    if (!look(0, what) || what.st_size == 0 || !isPlain(0, what)) return;
    moveTo(0, firstFree(1));
  }

  /// The numbers of the places that hold something: perhaps 1, then 2 and on without a gap. Runs as root.
  std::vector<int> find() const {
    std::vector<int> found;
    struct stat what {};
    if (look(1, what)) found.push_back(1);
    for (int place = 2; look(place, what); ++place) found.push_back(place);
    return found;
  }

  enum class Outcome { archived, waits, failed };

  /// Archives what waits in a place, when its writer has left it, and says in `what` what it was. It still stands there
  /// then.
  Outcome archive(int place, const char* user, const OpenedFolder& target, struct stat& what) const {
    Descriptor file;
    {
      const AsRoot root;
      file = Descriptor(sys::openat(folder_, name(place).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
      // A link cannot be opened: it is looked at for the words alone.
      if (!file && errno == ELOOP && look(place, what) && !isPlain(place, what)) return Outcome::failed;
      if (!file || sys::fstat(file.get(), what) != 0) return tell(place, "open");
      if (!isPlain(place, what)) return Outcome::failed;
      if (!isLeft(file, what)) return Outcome::waits;
      // What came between the look and the lease counts.
      if (sys::fstat(file.get(), what) != 0) return tell(place, "fstat");
    }
    const std::string month = monthArchiveName(what.st_mtim.tv_sec - kHalfDay, log_.ofProxy);
    const std::string member = joined(log_.base, "/", stampOf(what), ending_);
    if (what.st_size > 0 && !addToArchive(user, target, month, member, file)) return Outcome::failed;
    return Outcome::archived;
  }

  /// Deletes what stands in a place, if it still is what was archived. With `last` above 0 the log of that place takes
  /// it over in the same moment, so that there never is a gap, not even after a crash. Runs as root.
  Outcome remove(int place, int last, const struct stat& archived) const {
    const std::string here = name(place);
    struct stat now {};
    const bool known = look(place, now) && sameFile(now, archived) && now.st_size == archived.st_size;
    if (!known) errno = ESTALE;
    if (!known) return tell(place, "unlink");
    const int outcome = last > 0 ? sys::renameat(folder_, name(last).c_str(), folder_, here.c_str())
                                 : sys::unlinkat(folder_, here.c_str(), 0);
    return outcome == 0 ? Outcome::archived : tell(place, last > 0 ? "rename" : "unlink");
  }

  /// Moves what still waits in the first place out of the way of the next tally. Runs as root.
  void clearFirst() const {
    struct stat what {};
    if (look(1, what) && !S_ISLNK(what.st_mode)) moveTo(1, firstFree(2));
  }

 private:
  /// The current log is place 0.
  std::string name(int place) const {
    return joined(log_.base, ending_, place == 0 ? std::string() : joined(".", std::to_string(place)));
  }
  std::string path(int place) const { return joined(log_.folder, "/", name(place)); }
  bool look(int place, struct stat& what) const { return sys::lstatAt(folder_, name(place).c_str(), what) == 0; }

  int firstFree(int from) const {
    struct stat what {};
    while (look(from, what)) ++from;
    return from;
  }

  bool isPlain(int place, const struct stat& what) const {
    if (S_ISREG(what.st_mode) && what.st_nlink == 1) return true;
    refusalLog(10, "Tally::rotateLogs(%s): is hard or symbolic link", path(place).c_str());
    return false;
  }

  void moveTo(int from, int to) const {
    if (sys::renameat(folder_, name(from).c_str(), folder_, name(to).c_str()) == 0) return;
    errorLog("Error renaming %s to %s : %s", path(from).c_str(), path(to).c_str(), std::strerror(errno));
  }

  Outcome tell(int place, const char* step) const {
    errorLog("Tally::rotateLogs: %s: %s: %s", path(place).c_str(), step, std::strerror(errno));
    return Outcome::failed;
  }

  int folder_;
  const WebLog& log_;
  const std::string& ending_;
};

/// Archives what it can of what waits. 1 when the rest has only its writers to wait for.
int archiveAll(const Waiting& waiting, const std::vector<int>& places, const char* user, const OpenedFolder& target) {
  int outcome = 1;
  // From the last place to the first, so that what has to stay is known when a place becomes free. The largest first.
  std::deque<int> staying;
  for (auto place = places.rbegin(); place != places.rend(); ++place) {
    struct stat what {};
    Waiting::Outcome done = waiting.archive(*place, user, target, what);
    const bool first = *place == 1;
    if (done == Waiting::Outcome::archived) {
      const AsRoot root;
      done = waiting.remove(*place, first || staying.empty() ? 0 : staying.front(), what);
      if (done == Waiting::Outcome::archived && (first || staying.empty())) continue;
      if (done == Waiting::Outcome::archived) staying.pop_front();
    }
    if (done == Waiting::Outcome::failed) outcome = 0;
    staying.push_back(*place);
  }
  return outcome;
}

/// Whether a host has a log, or one that waits: most hosts of most servers have nothing to rotate most of the time.
bool hasAnyLog(const std::vector<WebLog>& logs) {
  const AsRoot root;
  struct stat what {};
  for (const WebLog& log : logs) {
    for (const char* ending : kEndings) {
      const std::string path = joined(log.folder, "/", log.base, ending);
      for (const char* place : {"", ".1", ".2"}) {
        if (sys::lstat(joined(path, place).c_str(), what) == 0) return true;
      }
    }
  }
  return false;
}

}  // namespace

int rotateLog(const Config* conf, const char* user, const WebLog& log, const std::string& ending,
              const OpenedFolder& target) {
  const FailScope scope("domain_log_rotation");
  Descriptor folder;
  std::vector<int> places;
  {
    const AsRoot root;
    folder = openGuardedFolder(log.folder.c_str());
    if (!folder && errno == ENOENT) return 1;
    if (!folder) {
      errorLog("Tally::rotateLogs: %s: %s", log.folder.c_str(), std::strerror(errno));
      return 0;
    }
    const Waiting waiting(folder, log, ending);
    if (!logsArePutAside(*conf)) waiting.putCurrentAside();
    places = waiting.find();
  }
  const Waiting waiting(folder, log, ending);
  const int outcome = target && archiveAll(waiting, places, user, target) ? 1 : 0;
  const AsRoot root;
  waiting.clearFirst();
  return outcome;
}

int rotateLogs(const Config* conf, const char* user, const char* domain, const char* subdomain) {
  if (isDemo() || conf->rotation == 0) return 1;
  const std::string host = hostOf(domain, subdomain);
  if (host.empty()) {
    errorLog("Tally::rotateLogs: %s %s is no domain", domain == nullptr ? "" : domain,
             subdomain == nullptr ? "" : subdomain);
    return 0;
  }
  const std::vector<WebLog> logs = webLogsOf(*conf, host);
  if (!hasAnyLog(logs)) return 1;
  const OpenedFolder target = openUserFolder(user, openHome(user), {"domains", domain, "logs"}, kLogFolderMode);
  int outcome = target ? 1 : 0;
  for (const WebLog& log : logs) {
    for (const char* ending : kEndings) {
      if (!rotateLog(conf, user, log, ending, target)) outcome = 0;
    }
  }
  if (target) deleteOldFilesFrom(target, user, conf);
  return outcome;
}

}  // namespace zvtaskq
