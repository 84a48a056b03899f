#include "tally/logs/web_statistics.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "account/model/user_folder.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/process/time_budget.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/safe_walk.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr const char* kWebalizer = "/usr/bin/webalizer";
constexpr const char* kWebalizerSettings = "/etc/webalizer.conf";
constexpr const char* kAwstatsScript = "awstats_process.sh";
/// Visitors are served from these folders.
constexpr mode_t kPagesMode = 0755;

/// Makes what stands in for the domain's folder below the administrator's, and gives it to the account.
OpenedFolder openCustomBase(const Config& conf, const char* user, const char* domain) {
  const AsRoot root;
  const Ids owner = idsOf(user);
  const std::string path = joined(conf.custom_stats_path, "/", domain);
  const Descriptor above = openGuardedFolder(conf.custom_stats_path.orEmpty());
  const bool made = above && sys::mkdirat(above.get(), domain, kPagesMode) == 0;
  OpenedFolder base;
  if (above) base = {Descriptor(sys::openat(above.get(), domain, O_RDONLY | O_DIRECTORY | O_NOFOLLOW)), path};
  struct stat what {};
  if (base && sys::fstat(base.folder.get(), what) == 0) {
    // What somebody has put in its place since is not given away.
    errno = EPERM;
    if (!made || (what.st_uid == 0 && sys::fchmod(base.folder.get(), kPagesMode) == 0 &&
                  sys::fchown(base.folder.get(), owner.user, owner.group) == 0)) {
      return base;
    }
  }
  errorLog("Tally::openCustomBase(%s): %s", path.c_str(), std::strerror(errno));
  return {};
}

bool holdsOnlyFiles(const Descriptor& folder) {
  const std::string top = joined("/proc/self/fd/", std::to_string(folder.get()), "/.");
  return walkTree(top.c_str(), [](const TreeEntry& entry) {
           return S_ISREG(entry.what.st_mode) || S_ISDIR(entry.what.st_mode) ? 1 : 0;
         }) != 0;
}

/// The look at an open folder of pages; when it is not open, errno says why.
int checkStats(const Descriptor& folder, const char* path, const char* user) {
  const int error = errno;
  struct stat what {};
  const AsRoot root;
  const bool isKnown = folder && sys::fstat(folder.get(), what) == 0;
  const char* fault = !isKnown                          ? std::strerror(error)
                      : what.st_uid != idsOf(user).user ? "it belongs to somebody else"
                      : (what.st_mode & S_IWOTH) != 0   ? "everybody may write to it"
                      : !holdsOnlyFiles(folder)         ? "there are other things than files in it"
                                                        : nullptr;
  if (fault == nullptr) return 1;
  refusalLog(10, "Suspicious stats folder found: %s of %s: %s", path == nullptr ? "" : path,
             user == nullptr ? "" : user, fault);
  return 0;
}

/// The folder of the pages, made when it is missing, and found above suspicion.
OpenedFolder openPages(const Config& conf, const char* user, const char* domain, const char* subdomain,
                       const char* kind) {
  std::vector<std::string> steps{kind};
  if (subdomain != nullptr) steps.emplace_back(subdomain);
  OpenedFolder base;
  if (!conf.custom_stats_path.isEmpty()) {
    base = openCustomBase(conf, user, domain);
  } else {
    steps.insert(steps.begin(), {"domains", domain});
    base = openHome(user);
  }
  OpenedFolder pages = openUserFolder(user, std::move(base), steps, kPagesMode);
  if (pages && !checkStats(pages.folder, pages.path.c_str(), user)) return {};
  return pages;
}

/// The log that the statistics are made of. Not open when there is none.
Descriptor openVisitorLog(const Config& conf, const std::string& host) {
  const AsRoot root;
  const char* ending = logsArePutAside(conf) ? ".log.1" : ".log";
  for (const WebLog& log : webLogsOf(conf, host)) {
    if (log.ofProxy != (conf.nginx_proxy != 0)) continue;
    const Descriptor folder = openGuardedFolder(log.folder.c_str());
    if (!folder) continue;
    Descriptor file(sys::openat(folder.get(), (log.base + ending).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    struct stat what {};
    if (file && sys::fstat(file.get(), what) == 0 && S_ISREG(what.st_mode) && what.st_nlink == 1) return file;
  }
  return {};
}

struct Pages {
  std::string host;
  OpenedFolder folder;
  Descriptor log;
};

/// What both programs work with. 1 when there is something to do; -1 when there is nothing; 0 with an error-log line.
int prepare(const Config& conf, const char* user, const char* domain, const char* subdomain, const char* kind,
            Pages& out) {
  if (isDemo()) return -1;
  out.host = hostOf(domain, subdomain);
  if (out.host.empty()) {
    errorLog("Tally::%s: %s %s is no domain", kind, domain == nullptr ? "" : domain,
             subdomain == nullptr ? "" : subdomain);
    return 0;
  }
  out.log = openVisitorLog(conf, out.host);
  if (!out.log) return -1;
  out.folder = openPages(conf, user, domain, subdomain, kind);
  return out.folder ? 1 : 0;
}

int runFor(const char* user, const Pages& pages, ChildPlan plan, const char* program, TimeBudget& time) {
  plan.identity = idsOf(user);
  plan.workingDirectory = pages.folder.path;
  plan.inputDescriptor = pages.log.get();
  plan.errors = ChildPlan::Stream::collect;
  const ChildResult result = time.run(std::move(plan));
  if (result.status == 0) return 1;
  // That the time is over has been said.
  if (!result.timedOut) errorLog("error executing %s for %s : %s", program, pages.host.c_str(), result.output.c_str());
  return 0;
}

}  // namespace

int check_stats_path(const char* path, const char* user) {
  const AsRoot root;
  return checkStats(openGuardedFolder(path), path, user);
}

bool hasWebalizer() {
  if (pathExists(kWebalizer, PathKind::file)) return true;
  debug(100, "There is no %s", kWebalizer);
  return false;
}

int doWebalizer(const Config* conf, const char* user, const char* domain, const char* subdomain, TimeBudget& time) {
  if (time.isSpent()) return 0;
  Pages pages;
  const int ready = prepare(*conf, user, domain, subdomain, "stats", pages);
  if (ready != 1) return ready == 0 ? 0 : 1;
  std::vector<std::string> arguments;
  if (pathExists(kWebalizerSettings, PathKind::file)) arguments.insert(arguments.end(), {"-c", kWebalizerSettings});
  // Its own memory of what it has counted, no chatter, the host, the folder, and the log on its standard input.
  arguments.insert(arguments.end(), {"-p", "-Q", "-n", pages.host, "-o", pages.folder.path, "-"});
  return runFor(user, pages, ChildPlan::program(kWebalizer, arguments), kWebalizer, time);
}

int doAwstats(const Config* conf, const char* user, const char* domain, const char* subdomain, TimeBudget& time) {
  if (time.isSpent()) return 0;
  const std::string script = scriptPath(*conf, kAwstatsScript);
  if (!pathExists(script.c_str(), PathKind::file)) {
    errorLog("Tally::doAwstats: there is no %s", script.c_str());
    return 0;
  }
  Pages pages;
  const int ready = prepare(*conf, user, domain, subdomain, "awstats", pages);
  if (ready != 1) return ready == 0 ? 0 : 1;
  return runFor(user, pages, ChildPlan::program(script, {user, pages.host, pages.folder.path}), script.c_str(), time);
}

}  // namespace zvtaskq
