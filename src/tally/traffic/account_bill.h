// One account's part in the byte logs of a tally: summed, billed by one line of its tally file, deleted.
//
// What a killed tally left is told by its stamp. When the account's line of that stamp is there, the logs are billed
// and only wait to be deleted; when it is not, they are renamed to the stamp of the tally that finds them, and billed
// by it. A log that a server still writes to is billed to where it ends. That place is noted in the panel's state
// before the line is written ("billing/<account>": for the number of the file the stamps and places of its last two
// lines), and counts only when the line of its stamp is there; the rest is billed by the next tally.
#pragma once

#include <map>
#include <set>
#include <string>

#include "core/record/panel_file.h"
#include "tally/traffic/byte_logs.h"
#include "tally/traffic/web_traffic.h"

namespace zvtaskq {

class LineReader;

/// The parts of an account's traffic, in bytes.
struct TrafficParts {
  double ftp = 0;
  double down = 0;
  double up = 0;
  double panel = 0;
  double total() const { return ftp + down + up + panel; }
};

/// Works as root, and gives back the identity it finds. The caller keeps others from the account (AccountLock).
class AccountBill {
 public:
  /// The logs must outlive the object, and have begun.
  AccountBill(ByteLogs& logs, const char* account);
  ~AccountBill();
  AccountBill(const AccountBill&) = delete;
  AccountBill& operator=(const AccountBill&) = delete;

  /// What the byte logs of a host say that is not billed yet. What is no plain file adds nothing, with an error-log
  /// line that names it and the account.
  ByteSums host(const std::string& host);
  /// The same of a tally file in the account's folder, such as "ZorvaneUsage.bytes". Who has it open while it is put
  /// aside still writes to it: it is waited for, as for the servers.
  double noted(const char* file);
  /// The same of one that is put aside under its lock; without the lock, what was put aside before alone counts, with
  /// an error-log line.
  double notedUnderLock(const char* file);
  /// The stamps of killed tallies whose logs this one bills: what they noted elsewhere does not count.
  const std::set<long long>& takenOver() const { return takenOver_; }

  /// Makes what is billed independent of the account's lines, which are about to go: logs that are billed are deleted
  /// by the next flush, and places in others are noted for good. 0 with an error-log line: the lines must stay then.
  [[nodiscard]] int settle(const std::vector<std::string>& hosts);

  /// Writes the line of this tally. 0 with "Unable to open %s for appending" in the error log: nothing is billed then,
  /// and the next tally does it. The logs go with the next flush.
  [[nodiscard]] int enter(const TrafficParts& parts);

 private:
  /// Where a log stands, and its name before it was put aside.
  struct Place {
    const Descriptor& folder;
    const std::string& path;
    std::string log;
  };

  template <class Sum>
  void readAll(const Place& place, AsideLogs logs, Sum sum);
  AsideLogs inOwnFolder(const char* file);
  void addCurrent(const Place& place, AsideLogs& logs);
  void addUnderLock(const Place& place, AsideLogs& logs);
  using PutAside = void (AccountBill::*)(const Place& place, AsideLogs& logs);
  double sumNoted(const char* file, PutAside putAside);
  bool takeOver(const Place& place, AsideLog& log);
  bool rename(const Place& place, AsideLog& log);
  bool isHeld(int fd);
  bool isBilled(long long stamp);
  void openOwnFolder();
  long long billedPlace(const char* value);
  long long markOf(const struct stat& what);
  void keepMark(const struct stat& what, long long place);
  void forgetMark(const struct stat& what);
  int writeNote();
  int dropForgotten(const std::string& tallyFile);

  ByteLogs& logs_;
  std::string account_;
  std::string path_;
  Descriptor folder_;
  PanelRecord note_;
  bool noteChanged_ = false;
  /// A log of the account's own folder is aside, and is not billed to its end yet.
  bool hasOwnAside_ = false;
  bool staysAside_ = false;
  std::vector<std::string> forgotten_;
  /// Which stamps the tally file has a line of, as far as it was asked.
  std::map<long long, bool> lines_;
  std::set<long long> takenOver_;
  /// Paths of folders, and names there.
  std::vector<std::pair<std::string, std::string>> done_;
};

}  // namespace zvtaskq
