// The byte logs of one tally: put aside when it begins, deleted when the accounts' lines are safe on the disk.
//
// Every byte is billed once, whatever is killed when, and while the servers write on. A tally takes a second of its
// own, its stamp, and renames each log "L" to "L.<stamp>". An account's line in its tally file carries the stamp as its
// time, so the line alone tells whether the logs of that stamp are billed (tally/traffic/account_bill.h). Nothing is
// deleted before the lines are on the disk, which is made sure of once for many accounts.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/panel_file.h"
#include "core/sys/sys.h"

namespace zvtaskq {

class Config;

/// A log under the name that a tally gave it.
struct AsideLog {
  std::string name;
  long long stamp = 0;
};
using AsideLogs = std::vector<AsideLog>;

/// Takes "<log>.<stamp>" or "<log>.<stamp>.<n>" apart. False for any other name.
bool readAsideName(std::string_view name, std::string_view log, AsideLog& out);

/// Works as root, and gives back the identity it finds.
class ByteLogs {
 public:
  /// `conf` must outlive the object.
  explicit ByteLogs(const Config& conf);
  ~ByteLogs();
  ByteLogs(const ByteLogs&) = delete;
  ByteLogs& operator=(const ByteLogs&) = delete;

  /// Takes the stamp, and puts aside the logs of those hosts that `isWanted` answers for. 0 with an error-log line when
  /// the stamp cannot be kept: then nothing may be billed.
  /// One that only looks for what earlier ones left lets the current logs stay.
  enum class Current { putAside, stays };
  template <class IsWanted>
  [[nodiscard]] int begin(IsWanted isWanted, Current current = Current::putAside) {
    return begin([](void* context, std::string_view host) { return (*static_cast<IsWanted*>(context))(host); },
                 &isWanted, current);
  }
  /// Some log was put aside, by this tally or one before it, that a server may have open: it has to be told, by whoever
  /// tells it of other logs too.
  bool anyPutAside() const { return anyPutAside_; }
  /// The servers know. From now on they have five seconds to let go of what was put aside.
  void serversWereTold();
  /// Waits a moment of those seconds. False when they are over.
  bool waitForWriters() const;

  long long stamp() const { return stamp_; }
  /// The folder of the web logs, open; and its path.
  const Descriptor& folder() const { return folder_; }
  const std::string& path() const { return path_; }
  /// The logs of a host that were put aside, by this tally or one that was killed. They are the caller's from now on.
  AsideLogs takeLogs(std::string_view host);
  /// A tally before this one did not come to its end: there may be something of it in the accounts' folders.
  bool otherDied() const { return otherDied_; }

  /// Something stays aside in an account's folder: the next tally has to look there.
  void leftBehind() { leftBehind_ = true; }
  /// Has a log that is billed deleted by the next flush. `folder` is a path.
  void billed(const std::string& folder, const std::string& name) { billed_.push_back({folder, name}); }
  /// How many wait for that.
  std::size_t waiting() const { return billed_.size(); }
  /// Makes the lines safe on the disk and deletes what was billed. 0 with an error-log line: what stays is known to be
  /// billed by the next tally.
  int flush();
  /// The tally has been through everything there is: nothing is left of those that were killed.
  void sawEverything() { sawEverything_ = true; }

 private:
  using IsWantedHost = bool (*)(void* context, std::string_view host);
  struct Billed {
    std::string folder;
    std::string name;
  };
  [[nodiscard]] int begin(IsWantedHost isWanted, void* context, Current current);
  [[nodiscard]] int takeStamp();
  void putAside(IsWantedHost isWanted, void* context, Current current);
  void meet(const char* name, IsWantedHost isWanted, void* context, Current current);

  const Config& conf_;
  std::string path_;
  Descriptor folder_;
  /// The stamps that were given out last, and those of tallies that have not come to their end.
  PanelRecord stamps_;
  long long stamp_ = 0;
  bool anyPutAside_ = false;
  bool otherDied_ = false;
  bool sawEverything_ = false;
  bool leftBehind_ = false;
  long long graceEnd_ = 0;
  std::multimap<std::string, AsideLog, std::less<>> aside_;
  std::vector<Billed> billed_;
};

}  // namespace zvtaskq
