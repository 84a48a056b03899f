#include "tally/traffic/ftp_traffic.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/panel/panel_paths.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "tally/traffic/account_bill.h"
#include "tally/traffic/traffic_ledger.h"
#include "tally/traffic/transfer_line.h"

namespace zvtaskq {

namespace {

constexpr const char* kProftpdFolder = "/var/log/proftpd";
constexpr std::string_view kProftpdEnding = ".bytes";
constexpr const char* kNotedFile = "ftp.bytes";

/// How the logs of a server are read.
struct FtpServer {
  const char* ledger;
  const char* accountFile;
  const char* copyEnding;
  TransferReader (*readerFor)(std::string_view firstLine);
};
constexpr FtpServer kProftpd{"proftpd", kNotedFile, ".temp",
                             [](std::string_view) -> TransferReader { return readProftpdLine; }};
constexpr FtpServer kPureftpd{"pureftpd", "bandwidth.tally", ".copy", pureftpdReader};

/// One reading of a server's logs.
class FtpReading {
 public:
  FtpReading(const FtpServer& server, const Config& conf)
      : server_(server), conf_(conf), ledger_(server.ledger, server.accountFile, "ftp") {}

  int run(const std::vector<std::string>& logs) {
    if (logs.empty()) return 1;
    if (!openLedger() || !readOwners()) return 0;
    int whole = 1;
    for (const std::string& log : logs) {
      if (!readLog(log)) whole = 0;
      if (lostPlace_) break;
    }
    return whole;
  }

 private:
  int openLedger() {
    const AsRoot root;
    return ledger_.open();
  }

  /// Without the table nothing can be billed: the traffic of all domains would be nobody's.
  int readOwners() {
    owners_.set_caller_location("FtpReading", 0);
    const int good = readDomainOwners(owners_);
    owners_.trimValueFront();
    const AsRoot root;
    if (good || !pathExists(domainOwnersFile().c_str())) return 1;
    errorLog("Can't read %s", owners_.getFilename());
    return 0;
  }

  int readLog(const std::string& log) {
    const AsRoot root;
    FileLock lock;
    if (!lock.take(log.c_str(), kLockMaximumAge, "FtpReading", nullptr)) {
      errorLog("Can't get lock on %s", log.c_str());
      return 0;
    }
    const std::string copy = joined(log, server_.copyEnding);
    struct stat there {};
    const bool leftOver = sys::lstat(copy.c_str(), there) == 0;
    if (!leftOver && !conf_.incremental_ftp && sys::rename(log.c_str(), copy.c_str()) != 0 && errno != ENOENT) {
      errorLog("Unable to move %s: %s", log.c_str(), std::strerror(errno));
    }
    readRotated(log);
    const Descriptor moved = readFile(copy, log);
    const Descriptor live = readFile(log, log);
    if (lostPlace_ || !ledger_.enter()) return 0;
    if (moved) dropCopy(copy, moved.get());
    return 1;
  }

  /// What the log still got after the last reading and before it was rotated.
  void readRotated(const std::string& log) {
    const LogMark mark = ledger_.mark(log);
    if (mark.offset == 0 || fitsNow(log, mark) || fitsNow(joined(log, server_.copyEnding), mark)) return;
    const Descriptor rotated = openRotated(log.c_str(), mark);
    if (rotated) readFrom(rotated.get(), mark.offset, log);
    ledger_.setMark(log, {});
  }

  static bool fitsNow(const std::string& path, const LogMark& mark) {
    const Descriptor file = openRegularFile(path.c_str());
    return file && mark.isOf(file.get());
  }

  /// Reads what is new in a file, which may have had its mark under the log's name. Not open when there is none.
  Descriptor readFile(const std::string& path, const std::string& log) {
    Descriptor file = openRegularFile(path.c_str());
    if (!file) {
      if (errno != ENOENT) {
        errorLog("Unable to read %s: %s", path.c_str(), std::strerror(errno));
      } else {
        ledger_.setMark(path, {});
      }
      return file;
    }
    LogMark mark = ledger_.mark(path);
    if (!mark.isOf(file.get())) mark = ledger_.mark(log);
    const long long start = mark.isOf(file.get()) ? mark.offset : 0;
    const long long end = readFrom(file.get(), start, path);
    mark = LogMark::at(file.get(), end);
    // What cannot be found again would be billed again.
    if (mark.offset != end) lostPlace_ = true;
    ledger_.setMark(path, mark);
    return file;
  }

  /// Returns the place behind the last whole line.
  long long readFrom(int fd, long long start, const std::string& path) {
    const TransferReader read = readerOf(fd, path);
    if (read == nullptr || ::lseek(fd, start, SEEK_SET) != start) return start;
    LineReader reader(fd);
    Transfer transfer;
    for (std::string_view line; reader.next(line);) {
      if (read(line, transfer)) bill(transfer);
    }
    if (reader.failed()) errorLog("Unable to read %s: %s", path.c_str(), std::strerror(errno));
    return start + reader.consumed();
  }

  /// By the log's first line; null when there is none yet, or when it is of no format to be trusted.
  TransferReader readerOf(int fd, const std::string& path) const {
    std::string_view line;
    LineReader reader(fd);
    if (::lseek(fd, 0, SEEK_SET) != 0 || !reader.next(line)) return nullptr;
    const TransferReader read = server_.readerFor(line);
    if (read == nullptr) errorLog("%s is in none of the formats clf, w3c and xferlog", path.c_str());
    return read;
  }

  void bill(const Transfer& transfer) {
    if (isDebug() > 0) {
      debug(1000, "Ftp: %s %s bytes from %s", std::string(transfer.user).c_str(),
            std::string(transfer.bytesText).c_str(), std::string(transfer.from).c_str());
    }
    const std::string account = ownerOf(transfer.user);
    if (isAccountName(account.c_str(), &conf_)) ledger_.add(account, transfer.bytes);
  }

  std::string ownerOf(std::string_view user) const {
    const std::size_t separator = user.rfind(conf_.ftpsep);
    if (separator == std::string_view::npos) return std::string(user);
    std::string domain(user.substr(separator + 1));
    for (char& c : domain) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const char* owner = owners_.getValue(domain.c_str());
    return owner == nullptr ? "" : owner;
  }

  /// Deletes a working copy that is billed, unless somebody writes to it still: a lease is given only when nobody does.
  void dropCopy(const std::string& copy, int fd) {
    struct stat what {};
    const ReadLease lease(fd);
    if (!lease.granted()) return;
    if (sys::fstat(fd, what) != 0 || what.st_size > ledger_.mark(copy).offset + unfinished(fd, copy)) return;
    // Somebody waits for the file to be opened for him.
    if (!lease.isWhole()) return;
    if (sys::unlink(copy.c_str()) != 0) {
      errorLog("Unable to delete %s: %s", copy.c_str(), std::strerror(errno));
      return;
    }
    ledger_.setMark(copy, {});
    static_cast<void>(ledger_.enter());
  }

  /// Bytes behind the last whole line: with no writer left, nobody will ever finish them.
  long long unfinished(int fd, const std::string& copy) const {
    const long long start = ledger_.mark(copy).offset;
    if (::lseek(fd, start, SEEK_SET) != start) return 0;
    LineReader reader(fd);
    std::string_view line;
    return reader.next(line) ? 0 : reader.unfinished();
  }

  const FtpServer& server_;
  const Config& conf_;
  TrafficLedger ledger_;
  ConfigFile owners_{nullptr};
  /// A log was read whose mark could not be made: nothing more may be billed.
  bool lostPlace_ = false;
};

/// The logs of ProFTPD, those among them of which only the working copy is left.
std::vector<std::string> proftpdLogs() {
  const AsRoot root;
  std::vector<std::string> logs;
  FolderReader folder(kProftpdFolder);
  while (const dirent* entry = folder.next()) {
    std::string_view name = entry->d_name;
    if (name.ends_with(kProftpd.copyEnding)) name.remove_suffix(std::strlen(kProftpd.copyEnding));
    if (name.ends_with(kProftpdEnding)) logs.push_back(joined(kProftpdFolder, "/", name));
  }
  std::sort(logs.begin(), logs.end());
  logs.erase(std::unique(logs.begin(), logs.end()), logs.end());
  return logs;
}

}  // namespace

int parse_pure_ftp_log(const Config* conf) {
  if (conf->pureftp_log.isEmpty()) return 1;
  return FtpReading(kPureftpd, *conf).run({conf->pureftp_log.get()});
}

int collectFtpTraffic(const Config* conf) {
  if (conf->pureftp) return parse_pure_ftp_log(conf);
  return FtpReading(kProftpd, *conf).run(proftpdLogs());
}

double getFtpTotal(AccountBill& bill) {
  return bill.notedUnderLock(kNotedFile);
}

}  // namespace zvtaskq
