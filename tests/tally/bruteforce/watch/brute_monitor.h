// A panel with a log that the brute-force monitor reads.
#pragma once

#include "support/notice_recorder.h"
#include "support/panel_folder.h"
#include "tally/bruteforce/records/records.h"
#include "tally/bruteforce/watch/check.h"

namespace zvtaskq::test {

inline constexpr long long kNow = 1'800'000'000;
inline std::vector<SentNotice>& sent = sentNotices();

inline std::string failure(const std::string& user, const std::string& address) {
  return "Nov  3 04:05:06 server sshd[1]: Failed password for " + user + " from " + address + " port 22 ssh2\n";
}

class BruteMonitor : public ::testing::Test {
 protected:
  BruteMonitor() {
    sent.clear();
    Config& conf = panel_.conf;
    conf.brute_force_log_scanner = 1;
    conf.brute_force_secure_log = log_.c_str();
    conf.servername = "server.example";
    conf.clear_brute_log_time = 24;
    conf.ip_brutecount = conf.user_brutecount = 1'000'000;
    conf.brute_force_ignore_attempts_on_suspended = false;
    write("", std::ios::trunc);
  }
  void write(const std::string& text, std::ios::openmode mode = std::ios::app) {
    std::ofstream(log_, mode | std::ios::binary) << text;
  }
  void pass(long long now = kNow) {
    const FixedClock clock(now);
    check_brute_force_logs(&panel_.conf);
  }
  std::string data(const std::string& file) { return contentOf(panel_.path("admin/" + file)); }
  void setData(const std::string& file, const std::string& text) { panel_.put("admin/" + file, text); }
  void hook(const std::string& name, const std::string& body) { panel_.script("custom/brute_force_" + name, body); }
  /// Failures by name, of one of the files of counts.
  std::map<std::string, long long> counts(const std::string& file) {
    ConfigFile record(nullptr);
    record.readFromString(data(file).c_str());
    std::map<std::string, long long> all;
    for (long long i = 0; i < record.size(); ++i) all[record.getNameAt(i)] = figuresOf(record.getValueAt(i)).failures;
    return all;
  }
  std::vector<std::string> keys() {
    std::vector<std::string> all;
    std::istringstream lines(data("brute_log_entries.list"));
    for (std::string line; std::getline(lines, line);) all.push_back(line.substr(0, line.find('=')));
    return all;
  }

  /// Whether that is the number of failures from 192.0.2.1, and from nowhere else.
  testing::AssertionResult counted(long long failures) {
    const auto all = counts("brute_ip.data");
    return testing::AssertionResult(all == std::map<std::string, long long>{{"192.0.2.1", failures}})
           << data("brute_ip.data") << panel_.logs.errors();
  }
  auto hasError(const std::string& text) { return holds(panel_.logs.errors(), text); }
  /// How many notices a pass sends.
  std::size_t toldBy(long long now) {
    sent.clear();
    pass(now);
    return sent.size();
  }
  void putAside() { ::rename(log_.c_str(), (log_ + ".1").c_str()); }

  PanelFolder panel_;
  std::string log_ = panel_.path("secure");
};

using Counts = std::map<std::string, long long>;

}  // namespace zvtaskq::test
