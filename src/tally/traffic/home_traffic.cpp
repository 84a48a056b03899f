#include "tally/traffic/home_traffic.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include "account/model/account_name.h"
#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/logs/rotation.h"
#include "tally/traffic/traffic_ledger.h"

namespace zvtaskq {

namespace {

constexpr const char* kLog = "/var/log/httpd/homedir.log";
constexpr const char* kMarkName = "log";
constexpr std::size_t kLongestLine = 204800;
constexpr std::string_view kBlanks = " \t", kNameEnds = " \t/\\";

/// Adds the lines from a place on to the ledger. Returns the place behind the last whole one.
long long addFrom(int fd, long long start, TrafficLedger& ledger) {
  if (::lseek(fd, start, SEEK_SET) != start) return start;
  LineReader reader(fd);
  HomeTraffic traffic;
  for (std::string_view line; reader.next(line);) {
    if (readHomeTraffic(line, traffic)) ledger.add(traffic.account, traffic.bytes);
  }
  if (reader.failed()) errorLog("Unable to read %s: %s", kLog, std::strerror(errno));
  return start + reader.consumed();
}

/// After the log was emptied: what it had got since it was read stands in the copy.
int billTail(const LogMark& mark, TrafficLedger& ledger) {
  const long long size = fileSize(kLog);
  // Not emptied: what is new in it is for the next time.
  if (size < 0 || size >= mark.offset) return 1;
  ledger.setMark(kMarkName, {});
  const Descriptor copy = openRotated(kLog, mark);
  if (copy) static_cast<void>(addFrom(copy.get(), mark.offset, ledger));
  return ledger.enter();
}

/// With nothing to be kept the rotation would delete the log, which the web server has open and goes on writing to. All
/// that is in it is billed, so it is emptied; what came meanwhile, or is half a line, lets it wait for the next time.
int emptyBilled(int fd, TrafficLedger& ledger) {
  const Descriptor log(sys::open(joined("/proc/self/fd/", std::to_string(fd)).c_str(), O_WRONLY));
  struct stat now {};
  const bool isKnown = log && sys::fstat(log.get(), now) == 0;
  if (isKnown && now.st_size != ledger.mark(kMarkName).offset) return 1;
  if (!isKnown || sys::ftruncate(log.get(), 0) != 0) {
    errorLog("Unable to empty %s: %s", kLog, std::strerror(errno));
    return 1;
  }
  ledger.setMark(kMarkName, {});
  return ledger.enter();
}

int billLog(int fd) {
  TrafficLedger ledger("homedir", "bandwidth.tally", "homedir");
  if (!ledger.open()) return 0;
  const LogMark before = ledger.mark(kMarkName);
  const long long end = addFrom(fd, before.isOf(fd) ? before.offset : 0, ledger);
  const LogMark mark = LogMark::at(fd, end);
  // What cannot be found again would be billed again.
  if (mark.offset != end) return 0;
  ledger.setMark(kMarkName, mark);
  if (!ledger.enter()) return 0;
  struct stat what {};
  const bool isPlain = sys::fstat(fd, what) == 0 && what.st_nlink == 1;
  if (logs_to_keep(sys_conf) <= 1 && isPlain) return emptyBilled(fd, ledger);
  return rotate_log_up(kLog, sys_conf, 0, true) ? billTail(mark, ledger) : 1;
}

}  // namespace

bool readHomeTraffic(std::string_view line, HomeTraffic& out) {
  line = line.substr(0, kLongestLine);
  const std::size_t blank = line.find_first_of(kBlanks);
  if (line.starts_with('-') || blank == std::string_view::npos) return false;
  const auto [end, error] = std::from_chars(line.data(), line.data() + blank, out.bytes);
  if (error != std::errc() || end != line.data() + blank) return false;
  const std::size_t tilde = line.find('~', blank);
  if (tilde == std::string_view::npos) return false;
  line.remove_prefix(tilde + 1);
  out.account = line.substr(0, line.find_first_of(kNameEnds));
  return isAccountName(std::string(out.account).c_str());
}

int parseHomeDirBandwidth() {
  const AsRoot root;
  if (!pathExists(kLog)) {
    errorLog("%s doesn't exist for ~username bandwidth parsing.  See %s", kLog, sys_conf->zv_website.orEmpty());
    return 0;
  }
  const Descriptor log = openRegularFile(kLog);
  if (!log) {
    errorLog("Unable to open %s for ~username bandwidth parsing", kLog);
    return 0;
  }
  FileLock lock;
  if (!lock.take(kLog, kLockMaximumAge, "parseHomeDirBandwidth", nullptr)) {
    errorLog("Can't get lock on %s", kLog);
    return 0;
  }
  return billLog(log.get());
}

}  // namespace zvtaskq
