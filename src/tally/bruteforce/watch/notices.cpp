#include "tally/bruteforce/watch/notices.h"

#include <algorithm>
#include <ctime>

#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/overrides.h"
#include "core/panel/state_folder.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/sys/dates.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/post_string.h"
#include "notify/ticket.h"
#include "tally/bruteforce/lines/data_paths.h"
#include "tally/bruteforce/records/journal.h"
#include "tally/bruteforce/watch/skip_list.h"

namespace zvtaskq {

const BruteKind kBruteAddress{"IP", " from IP(s) ", "brute_force_notice_ip.sh"};
const BruteKind kBruteUser{"User", " on User(s) ", "brute_force_notice_user.sh"};

namespace {

constexpr int kCountDebug = 2000;
constexpr int kNoticeDebug = 100;
constexpr long long kHour = 3600;
constexpr int kHookTime = 60;
constexpr const char* kLastNotify = "last_notify";
constexpr int kGeneral = 1;

/// The script's path, empty when it is not there.
std::string hookIfAny(const Config& conf, const char* name) {
  return hookExists(conf, name) ? hookPath(conf, name) : std::string();
}

/// A name as it was before it became the key of a record.
std::string decoded(const char* key) {
  std::string name = key;
  name.resize(fixPostString(name.data(), 0));
  return name;
}

std::string spacedOut(std::string_view record) {
  std::string text;
  for (const char c : record) {
    if (c == '&') {
      text += " & ";
    } else {
      text += c;
    }
  }
  return text;
}

bool preHookObjects(BruteNotices& notices, const BruteKind& kind, const std::string& name) {
  if (notices.preHook().empty()) return false;
  const HookAnswer answer =
      notices.budget().run(notices.preHook().c_str(), {{"type", kind.name}, {"value", name}}, kHookTime);
  if (answer.failed()) errorLog("Tally::check_count_for: Pre script output: %s", answer.error.c_str());
  return answer.failed();
}

void runHook(BruteNotices& notices, const BruteKind& kind, const std::string& name, const std::string& record,
             long long count) {
  const std::string& path = notices.hookOf(kind);
  if (path.empty()) return;
  const HookAnswer answer = notices.budget().run(
      path.c_str(), {{"value", name}, {"data", record}, {"count", std::to_string(count)}}, kHookTime);
  if (answer.failed()) {
    errorLog("Brute Force error (%s, '%s'): Script output: %s", kind.name, name.c_str(), answer.error.c_str());
  } else if (!answer.result.empty()) {
    systemLog("Brute Force (%s, '%s'): Script output: %s", kind.name, name.c_str(), answer.result.c_str());
  }
}

/// Whether the administrators may be told of it again.
bool isDue(BruteNotices& notices, const char* key, const BruteFigures& figures) {
  const long long now = std::time(nullptr);
  if (figures.lastNotify == 0) return true;
  if (ageOf(figures.lastNotify, now).isAhead && figures.lastNotify != figures.lastEntry) {
    ++notices.ahead;
    return true;
  }
  if (now - figures.lastNotify < kHour) {
    debug(kCountDebug, "Last notify for %s was less than an hour ago, skipping check", key);
    return false;
  }
  // A notice covers the failures of its own second.
  if (figures.lastNotify < figures.lastEntry) return true;
  debug(kCountDebug, "Last entry for %s was before the last notification, skipping check", key);
  return false;
}

std::string stamped(const char* record, long long now) {
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(record);
  pairs.setParam(kLastNotify, now);
  return pairs.createPostString(0).orEmpty();
}

}  // namespace

BruteNotices::BruteNotices(const Config& conf, int hookTime)
    : conf_(conf),
      hookTime_(hookTime),
      budget_(hookTime),
      preHook_(hookIfAny(conf, "brute_force_notify_pre.sh")),
      addressHook_(hookIfAny(conf, kBruteAddress.hook)),
      userHook_(hookIfAny(conf, kBruteUser.hook)) {}

void BruteNotices::beginKind() {
  budget_ = HookBudget(hookTime_);
  changed.clear();
  firstWaiting = -1;
  ahead = waiting = 0;
}

int check_count_for(BruteNotices& notices, ConfigFile& counts, long long index, const BruteKind& kind, long long limit,
                    SkipList& skips) {
  const char* key = counts.getNameAt(index);
  if (limit == 0) {
    debug(kCountDebug, "Limit for %s is %d. Skipping", key, 0);
    return 0;
  }
  const BruteFigures figures = figuresOf(counts.getValueAt(index));
  debug(kCountDebug, "%s has %d attempts", key, static_cast<int>(figures.failures));
  if (!isDue(notices, key, figures) || figures.failures < limit) {
    if (!notices.preHook().empty() && figures.lastEntry >= notices.addedSince) notices.changed.push_back(index);
    return 0;
  }
  const std::string name = decoded(key), record(text_detail::part(counts.getValueAt(index)));
  if (skips.contains(name.c_str())) {
    debug(kNoticeDebug, "%s is in the skip list. Skipping", name.c_str());
    return 0;
  }
  if (notices.budget().isSpent() && !(notices.preHook().empty() && notices.hookOf(kind).empty())) {
    if (notices.waiting++ == 0) notices.firstWaiting = index;
    return 0;
  }
  if (preHookObjects(notices, kind, name)) return 0;

  const std::string shown = printable(name);
  const std::string count = std::to_string(figures.failures);
  notices.summary +=
      joined(kind.name, " ", shown, " has ", count, " failed login attempts: ", spacedOut(printable(record)), "\n");
  debug(kNoticeDebug, "*** %s %s has %d failed login attempts. Limit=%d data='%s'", kind.name, shown.c_str(),
        static_cast<int>(figures.failures), static_cast<int>(limit), record.c_str());
  const bool isFirst = notices.subjectList.find(kind.beforeFirst) == std::string::npos;
  notices.subjectList += joined(isFirst ? kind.beforeFirst : ", ", shown);
  const long long now = std::max<long long>(std::time(nullptr), figures.lastEntry);
  const std::string told = stamped(record.c_str(), now);
  counts.setParam_in_place(index, newString(told));
  ++notices.notices;
  runHook(notices, kind, name, told, figures.failures);
  return 1;
}

namespace {

/// Lets the pre-hook hear of what has changed, as long as there is time.
void tellChanged(BruteNotices& notices, const ConfigFile& counts, const BruteKind& kind, SkipList& skips) {
  for (const long long index : notices.changed) {
    if (notices.budget().isSpent()) return;
    const std::string name = decoded(counts.getNameAt(index));
    if (!skips.contains(name.c_str())) static_cast<void>(preHookObjects(notices, kind, name));
  }
}

/// Where the scripts of a kind had no time left in the last pass: this one begins there, so that every name has its
/// turn.
class HookTurns {
 public:
  HookTurns() : file_(stateFile("brute_hook_turns")) {
    if (file_.exists()) static_cast<void>(file_.readFile());
  }
  long long of(const BruteKind& kind, const ConfigFile& counts) const {
    const char* key = file_.getValue(kind.name);
    return key == nullptr ? 0 : std::max(counts.getIndex(key), 0LL);
  }
  /// An empty key for the beginning.
  void set(const BruteKind& kind, const char* key) {
    const char* before = file_.getValue(kind.name);
    if (text_detail::part(before) != key) file_.setParam(kind.name, key);
  }
  void keep() {
    if (!file_.changed || file_.writeFile()) return;
    errorLog("Error writing %s: %s", file_.getFilename(), file_.result.orEmpty());
  }

 private:
  PanelRecord file_;
};

void tellWaiting(const BruteNotices& notices, const BruteKind& kind) {
  if (notices.waiting == 0 || !isDueAgain(joined("brute_hooks_", kind.name).c_str())) return;
  errorLog("The scripts around brute-force notices take too long: %lld names (%s) wait for the next run",
           notices.waiting, kind.name);
}

/// The names of a file that were told of.
std::vector<std::string> checkAll(BruteNotices& notices, ConfigFile& counts, const BruteKind& kind, long long limit,
                                  SkipList& skips, HookTurns& turns) {
  std::vector<std::string> told;
  notices.beginKind();
  const long long size = counts.size(), start = turns.of(kind, counts);
  for (long long n = 0; n < size; ++n) {
    const long long i = n < size - start ? start + n : n - (size - start);
    if (check_count_for(notices, counts, i, kind, limit, skips)) told.emplace_back(counts.getNameAt(i));
  }
  tellChanged(notices, counts, kind, skips);
  turns.set(kind, notices.waiting > 0 ? counts.getNameAt(notices.firstWaiting) : "");
  tellWaiting(notices, kind);
  if (notices.ahead > 0) {
    errorLog("%s: the last_notify of %lld records is not in the past. Taking it for unset.", counts.getFilename(),
             notices.ahead);
  }
  return told;
}

/// The file is read anew: hooks have run, and others may have written there.
int keepStamps(BruteRecords& records, const std::vector<std::string>& told) {
  if (told.empty()) return 1;
  const long long now = std::time(nullptr);
  return records.update([&](ConfigFile& counts) {
    for (const std::string& key : told) {
      const long long index = counts.getIndex(key.c_str());
      if (index < 0) continue;
      const char* record = counts.getValueAt(index);
      const long long stamp = std::max(now, figuresOf(record).lastEntry);
      counts.setParam_in_place(index, newString(stamped(record, stamp)));
    }
  });
}

std::string messageOf(const BruteNotices& notices) {
  const Config& conf = notices.conf();
  const std::string host = conf.servername.isEmpty() ? std::string("localhost") : std::string(conf.servername.view());
  return joined("A brute force attack has been detected in one of your service logs.\n\n", notices.summary,
                "\nCheck 'Admin Level -> Brute Force Monitor' for more information\n",
                "\n\nView your Brute Force Monitor:\n", conf.SSL ? "https" : "http", "://", host, ":",
                std::to_string(conf.port), "/CMD_BRUTE_FORCE_MONITOR", "?sort1=-1\n");
}

/// 0 when the message reached nobody.
int send(const BruteNotices& notices) {
  const Config& conf = notices.conf();
  if (notices.notices == 0 || conf.hide_brute_force_notifications) return 1;
  const std::string subject = "Brute-Force Attack detected in service log" + notices.subjectList;
  const int byEmail = conf.brute_force_notifications_email_only ? 1 : 0;
  Ticket ticket;
  if (!ticket.notifyAdmins("", subject.c_str(), messageOf(notices).c_str(), kGeneral, byEmail)) {
    errorLog("Error while sending the notice of a brute-force attack");
  }
  return ticket.isLost ? 0 : 1;
}

}  // namespace

int tellBruteForce(const Config& conf, BruteFiles& files, int hookTime) {
  if (conf.ip_brutecount == 0 && conf.user_brutecount == 0) return 1;
  PanelRecord list(bruteSkipFile());
  // A list that cannot be read skips nobody: better one notice too many.
  if (list.exists() && !list.readFile(1)) tellUnreadable(list);
  SkipList skips(list);
  BruteNotices notices(conf, hookTime);
  notices.addedSince = files.addedSince;
  HookTurns turns;
  const auto addresses = checkAll(notices, files.addresses.counts(), kBruteAddress, conf.ip_brutecount, skips, turns);
  const auto users = checkAll(notices, files.users.counts(), kBruteUser, conf.user_brutecount, skips, turns);
  turns.keep();
  if (!send(notices)) return 0;
  const int keptAddresses = keepStamps(files.addresses, addresses);
  return keepStamps(files.users, users) && keptAddresses ? 1 : 0;
}

}  // namespace zvtaskq
