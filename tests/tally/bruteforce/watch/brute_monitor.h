// A panel with a log that the brute-force monitor reads.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "core/record/config_file.h"
#include "support/fixed_clock.h"
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
  void setData(const std::string& file, const std::string& text) {
    writeText(panel_.path("admin/" + file), text);
    ::chmod(panel_.path("admin/" + file).c_str(), 0666);
  }
  void hook(const std::string& name, const std::string& body) {
    for (const char* folder : {"", "scripts", "scripts/custom"}) ::chmod(panel_.path(folder).c_str(), 0755);
    const std::string path = panel_.path("scripts/custom/" + name);
    writeText(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
  }
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

  bool hasError(const std::string& text) { return panel_.logs.errors().find(text) != std::string::npos; }
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
