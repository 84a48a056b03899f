#include "services/ftp/password_files.h"

#include <map>
#include <set>

#include "account/model/account_record.h"
#include "account/model/ftp_files.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/sys/sys.h"
#include "services/rewrite/left_out.h"

namespace zvtaskq {

namespace {

/// All files, one after another, for a server that has them as one or each by itself.
class LogIns {
 public:
  LogIns(const FtpHolders& holders, bool areOne, const std::function<void(const FtpEntry&)>& take)
      : holders_(holders), areOne_(areOne), take_(take) {}

  int run(const FtpFile& all, Text& result) {
    readNotes();
    if (!takeFrom(all, result)) return 0;
    for (const FtpHolder& holder : holders_.all()) {
      std::vector<FtpFile> files;
      Text why;
      int isRead = domainFtpFiles(holder.account, files, why);
      for (const FtpFile& file : files) isRead &= takeFrom(file, why);
      if (!isRead) errorLog("%s: FTP accounts are left out: %s", holder.account.c_str(), why.orEmpty());
      atSafePoint();
    }
    writeNotes();
    return 1;
  }

 private:
  void readNotes() {
    const AsRoot root;
    static_cast<void>(openStateFolder("rewrites"));
    notes_.read();
  }

  void writeNotes() {
    const AsRoot root;
    notes_.keepOnly(refused_);
    notes_.write();
  }

  /// Says why, once until it is another line or reason, or a day has passed.
  void refuse(const FtpEntry& entry) {
    const std::string what = fingerprintOf(joined(entry.name, "\n", entry.field, "\n", entry.why));
    const Origin origin{entry.account.empty() ? "-" : entry.account, what};
    refused_.insert(origin);
    if (notes_.holds(origin, what)) return;
    notes_.add(origin, what);
    tellRefused(entry);
  }

  int takeFrom(const FtpFile& file, Text& result) {
    if (!areOne_) lines_.clear();
    const auto take = [&](FtpEntry entry, std::string_view) {
      if (entry.fate == FtpFate::none) return;
      if (entry.fate == FtpFate::refused) return refuse(entry);
      const auto [first, isNew] = lines_.try_emplace(entry.name, entry.line());
      if (!isNew) {
        // An account's own name stands in each of his files.
        if (first->second == entry.line()) return;
        entry.field = "name";
        entry.why = "there is another of that name before it";
        return refuse(entry);
      }
      take_(entry);
    };
    return eachFtpEntry(file, holders_, take, result);
  }

  const FtpHolders& holders_;
  bool areOne_;
  const std::function<void(const FtpEntry&)>& take_;
  /// The lines by their names.
  std::map<std::string, std::string> lines_;
  LeftOutNotes notes_{"ftp_lines"};
  std::set<Origin> refused_;
};

bool isThere(const std::string& path) {
  const AsRoot root;
  return pathExists(path.c_str()) != 0;
}

}  // namespace

int mainFtpFile(FtpFile& file, Text& result) {
  if (sys_conf->ftppasswd.isEmpty()) return fail(result, "ftppasswd is not set");
  file = {std::string(sys_conf->ftppasswd.view()), kRootIds, {}};
  return 1;
}

int domainFtpFiles(const std::string& account, std::vector<FtpFile>& files, Text& result) {
  std::vector<std::string> domains;
  if (!readDomains(account.c_str(), domains, result)) return 0;
  const Ids panelUser = idsOf(kPanelUser);
  const AsUser panel(panelUser);
  for (const std::string& domain : domains) {
    const std::string path = domainFtpFile(account.c_str(), domain.c_str());
    struct stat what {};
    if (sys::lstat(path.c_str(), what) == 0) files.push_back({path, panelUser, {account, domain}});
  }
  return 1;
}

int eachFtpEntry(const FtpFile& file, const FtpHolders& holders,
                 const std::function<void(const FtpEntry&, std::string_view)>& take, Text& result) {
  const auto look = [&](std::string_view line) { take(judgeFtpLine(line, file.place, holders), line); };
  return readLinesOf(file.path, file.owner, look, result);
}

int eachFtpLogIn(const FtpHolders& holders, const std::function<void(const FtpEntry&)>& take, Text& result) {
  FtpFile all;
  if (!mainFtpFile(all, result)) return 0;
  // One that has been moved away is no reason to let nobody in.
  return isThere(all.path) ? LogIns(holders, true, take).run(all, result) : fail(result, "There is no ", all.path);
}

int tellRefusedLines(Text& result) {
  FtpHolders holders;
  FtpFile all;
  const std::function<void(const FtpEntry&)> nothing = [](const FtpEntry&) {};
  return holders.read(result) && mainFtpFile(all, result) && LogIns(holders, false, nothing).run(all, result);
}

}  // namespace zvtaskq
