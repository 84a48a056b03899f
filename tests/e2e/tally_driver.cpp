// Carries out one operation of usage accounting with the settings of the installed panel, under the identity that a run
// has between its steps: tally_driver OPERATION [ARGUMENT...]. Prints what the operation hands back in words; the exit
// status is 0 for its 1, 1 for its 0, 2 for a wrong call.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/time_budget.h"
#include "core/sys/environment.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/disk/mail_counting.h"
#include "tally/logs/account_logs.h"
#include "tally/logs/domain_rotation.h"
#include "tally/logs/rotation.h"
#include "tally/logs/web_rotation.h"
#include "tally/logs/web_statistics.h"
#include "tally/traffic/account_bill.h"
#include "tally/traffic/ftp_traffic.h"
#include "tally/traffic/home_traffic.h"

using namespace zvtaskq;

namespace {
constexpr const char* kSettings = "/usr/local/zorvane/conf/zorvane.conf";

/// What an operation is given: its arguments, the first of them at 0; a missing one is null.
struct Call {
  const Config& conf;
  char** arguments;
  int count;
  const char* at(int i) const { return i < count ? arguments[i] : nullptr; }
};

/// Prints what the rotation adds to a result text.
int rotateWebLogs(const Call& call) {
  Text result;
  const int outcome = rotate_apache_logs(&call.conf, false, result);
  std::fputs(result.orEmpty(), stdout);
  return outcome;
}

/// The statistics of a domain, or of each of its subdomains that are named, in the time of one account.
int eachSubdomain(int (*work)(const Config*, const char*, const char*, const char*, TimeBudget&), const Call& call) {
  TimeBudget time(call.at(0), call.conf.account_time_limit);
  int outcome = work(&call.conf, call.at(0), call.at(1), call.at(2), time);
  for (int i = 3; i < call.count; ++i) outcome &= work(&call.conf, call.at(0), call.at(1), call.at(i), time);
  return outcome;
}

constexpr struct {
  const char* operation;
  int (*work)(const Call& call);
} kRows[] = {
    {"rotate_log_up", [](const Call& call) { return rotate_log_up(call.at(0), &call.conf, 0, call.at(1) != nullptr); }},
    {"parseHomeDirBandwidth", [](const Call&) { return parseHomeDirBandwidth(); }},
    {"collectFtpTraffic", [](const Call& call) { return collectFtpTraffic(&call.conf); }},
    {"getFtpTotal",
     [](const Call& call) {
       ByteLogs logs(call.conf);
       if (!logs.begin([](std::string_view) { return false; })) return 0;
       AccountBill bill(logs, call.at(0));
       return std::printf("%.0f\n", getFtpTotal(bill)) > 0 ? 1 : 0;
     }},
    {"rotate_apache_logs", rotateWebLogs},
    {"rotateLogs", [](const Call& call) { return rotateLogs(&call.conf, call.at(0), call.at(1), call.at(2)); }},
    {"rotate_email_usage", [](const Call& call) { return rotate_email_usage(&call.conf), 1; }},
    {"rotatePhpMailLog", [](const Call& call) { return rotatePhpMailLog(call.at(0), &call.conf); }},
    {"rotateLoginKeyLogs", [](const Call& call) { return rotateLoginKeyLogs(call.at(0), &call.conf); }},
    {"doWebalizer", [](const Call& call) { return eachSubdomain(doWebalizer, call); }},
    {"doAwstats", [](const Call& call) { return eachSubdomain(doAwstats, call); }}};
}  // namespace

int main(int count, char** words) {
  Config conf(kSettings);
  if (conf.error) {
    std::puts(conf.result.orEmpty());
    return 2;
  }
  useConfiguration(&conf);
  conf.setErrLog(joined(conf.logdir, "/errortaskq.log").c_str());
  const Log log;
  useCleanEnvironment();
  ::umask(077);
  if (!setRootPriv() || !dropSupplementaryGroups()) return 2;
  for (const auto& row : kRows) {
    if (count < 2 || std::strcmp(row.operation, words[1]) != 0) continue;
    setNoPriv();
    return row.work(Call{conf, words + 2, count - 2}) == 1 ? 0 : 1;
  }
  std::puts("usage: tally_driver OPERATION [ARGUMENT...]");
  return 2;
}
