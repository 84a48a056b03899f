// Operations of usage accounting without a run around them: see support/driver.h.
#include <cstdio>
#include <string>

#include "core/process/time_budget.h"
#include "support/driver.h"
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

int rotateWebLogs(const DriverCall& call) {
  return rotate_apache_logs(&call.conf, false, call.result);
}

/// The statistics of a domain, or of each of its subdomains that are named, in the time of one account.
int eachSubdomain(int (*work)(const Config*, const char*, const char*, const char*, TimeBudget&),
                  const DriverCall& call) {
  TimeBudget time(call.at(0), call.conf.account_time_limit);
  int outcome = work(&call.conf, call.at(0), call.at(1), call.at(2), time);
  for (std::size_t i = 3; i < call.arguments.size(); ++i)
    outcome &= work(&call.conf, call.at(0), call.at(1), call.at(i), time);
  return outcome;
}

constexpr DriverRow kRows[] = {
    {"rotate_log_up",
     [](const DriverCall& call) { return rotate_log_up(call.at(0), &call.conf, 0, call.at(1) != nullptr); }},
    {"parseHomeDirBandwidth", [](const DriverCall&) { return parseHomeDirBandwidth(); }},
    {"collectFtpTraffic", [](const DriverCall& call) { return collectFtpTraffic(&call.conf); }},
    {"getFtpTotal",
     [](const DriverCall& call) {
       ByteLogs logs(call.conf);
       if (!logs.begin([](std::string_view) { return false; })) return 0;
       AccountBill bill(logs, call.at(0));
       return std::printf("%.0f\n", getFtpTotal(bill)) > 0 ? 1 : 0;
     }},
    {"rotate_apache_logs", rotateWebLogs},
    {"rotateLogs", [](const DriverCall& call) { return rotateLogs(&call.conf, call.at(0), call.at(1), call.at(2)); }},
    {"rotate_email_usage", [](const DriverCall& call) { return rotate_email_usage(&call.conf), 1; }},
    {"rotatePhpMailLog", [](const DriverCall& call) { return rotatePhpMailLog(call.at(0), &call.conf); }},
    {"rotateLoginKeyLogs", [](const DriverCall& call) { return rotateLoginKeyLogs(call.at(0), &call.conf); }},
    {"doWebalizer", [](const DriverCall& call) { return eachSubdomain(doWebalizer, call); }},
    {"doAwstats", [](const DriverCall& call) { return eachSubdomain(doAwstats, call); }}};
}  // namespace

int main(int count, char** words) {
  return driverMain({words, static_cast<std::size_t>(count)}, kRows);
}
