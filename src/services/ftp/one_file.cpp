#include "services/ftp/one_file.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "account/model/account_holder.h"
#include "account/model/account_lock.h"
#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "account/model/ftp_files.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "services/ftp/password_files.h"

namespace zvtaskq {

namespace {

/// The lines that leave a file.
using Moved = std::set<std::string, std::less<>>;

class Conversion {
 public:
  Conversion(bool simulates, Text& result) : simulates_(simulates), result_(result) {}

  int run() {
    if (!mainFtpFile(all_, result_) || !holders_.read(result_) || !readOwned() || !readThere()) return 0;
    int done = 1;
    for (const FtpHolder& holder : holders_.all()) {
      if (!convert(holder)) done = 0;
      atSafePoint();
    }
    return done;
  }

 private:
  /// What the file of all has; of a name that is there twice, the servers take the first.
  int readThere() {
    const auto note = [&](std::string_view line) {
      if (!line.empty() && line.front() != '#') there_.try_emplace(std::string(line.substr(0, line.find(':'))), line);
    };
    return readLinesOf(all_.path, all_.owner, note, result_);
  }

  int readOwned() {
    std::vector<Address> addresses;
    if (!readAddresses(addresses)) return fail(result_, "the addresses cannot be read");
    for (const Address& address : addresses) {
      if (address.hasRecord && address.status == kOwnedStatus) owned_.insert(address.text);
    }
    return 1;
  }

  bool hasOwnAddress(const FtpHolder& holder) const {
    ConfigFile record(nullptr);
    ListFile list(nullptr);
    if (readAccount(holder.account.c_str(), record) && owned_.contains(record.getOrEmpty("ip"))) return true;
    if (!readAccountList(holder.account.c_str(), "ip.list", list)) return false;
    for (int i = 0; i < list.size(); ++i) {
      if (owned_.contains(list.getElementAt(i))) return true;
    }
    return false;
  }

  int convert(const FtpHolder& holder) {
    std::vector<FtpFile> files;
    if (!domainFtpFiles(holder.account, files, result_)) return 0;
    if (files.empty() || !hasOwnAddress(holder)) return 1;
    // Nobody suspends him meanwhile.
    const AccountLock lock(holder.account.c_str(), kAccountLockWait);
    if (!lock.held()) return fail(result_, "Unable to get the lock on account ", holder.account);
    std::string added;
    std::vector<Moved> moved(files.size());
    int done = 1;
    for (std::size_t i = 0; i < files.size(); ++i) done &= gather(files[i], moved[i], added);
    if (simulates_) return done;
    // The file of all is written once an account, however many domains there are.
    const auto keep = [](auto, auto&) { return LineFate::keep; };
    if (!added.empty() && !editLines(all_.path, all_.owner, keep, added, result_)) return 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
      done &= takeOut(files[i], moved[i]);
    }
    return done;
  }

  /// The lines of a file that may join those of all; those that are not there yet come to `added`.
  int gather(const FtpFile& file, Moved& moved, std::string& added) {
    const auto take = [&](FtpEntry entry, std::string_view line) {
      if (entry.fate == FtpFate::none) return;
      if (entry.fate != FtpFate::refused && mayJoin(entry, added)) {
        moved.emplace(line);
      } else {
        tellRefused(entry);
      }
    };
    if (!eachFtpEntry(file, holders_, take, result_)) {
      moved.clear();
      return 0;
    }
    if (!moved.empty()) {
      systemLog("%s: %d FTP accounts of %s %s %s", file.place.account.c_str(), static_cast<int>(moved.size()),
                file.place.domain.c_str(), simulates_ ? "would go to" : "go to", all_.path.c_str());
    }
    return 1;
  }

  /// What is there as it would be was brought by a conversion that did not come to its end.
  bool mayJoin(FtpEntry& entry, std::string& added) {
    const std::string line = entry.line();
    const auto [found, isNew] = there_.try_emplace(entry.name, line);
    if (isNew) added.append(line) += '\n';
    entry.field = "name";
    entry.why = "another of that name is in the file of all";
    return isNew || found->second == line;
  }

  int takeOut(const FtpFile& file, const Moved& moved) {
    const auto drop = [&](std::string_view line, std::string&) {
      return moved.contains(line) ? LineFate::drop : LineFate::keep;
    };
    if (!editLines(file.path, file.owner, drop, {}, result_)) return 0;
    const AsUser panel(file.owner);
    FileLock lock;
    if (!lock.take(file.path.c_str(), kLockMaximumAge, "convertToOneFtpFile", nullptr)) return 1;
    if (fileSize(file.path.c_str()) != 0 || unlinkFile(file.path.c_str())) return 1;
    const std::string why = std::strerror(errno);
    return fail(result_, "Unable to delete ", file.path, ": ", why);
  }

  bool simulates_;
  Text& result_;
  FtpFile all_;
  FtpHolders holders_;
  std::set<std::string> owned_;
  /// The lines of the file of all, by their names.
  std::map<std::string, std::string> there_;
};

}  // namespace

int convertToOneFtpFile(bool simulates, Text& result) {
  if (!simulates && sys_conf->unified_ftp_password_file == 0) {
    return fail(result,
                "unified_ftp_password_file is not set: the FTP server would go on reading the files of domains");
  }
  Conversion conversion(simulates, result);
  const int done = conversion.run();
  // One that was killed may have taken files away already.
  return (simulates || queueFtpHosts(result)) && done ? 1 : 0;
}

}  // namespace zvtaskq
