// Telling the administrators of addresses and accounts with many failed log-ins.
#pragma once

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "core/panel/hook_script.h"

namespace zvtaskq {

class Config;
class ConfigFile;
class SkipList;
struct BruteFiles;

/// Seconds that the scripts around the notices of one kind may take in one pass, all of them together.
inline constexpr int kBruteHookTime = 30;

/// What is counted.
struct BruteKind {
  /// "IP" or "User", as hooks and messages call it.
  const char* name;
  /// What precedes the first of its names in a message's subject.
  const char* beforeFirst;
  /// The administrator's script for each notice.
  const char* hook;
};
extern const BruteKind kBruteAddress;
extern const BruteKind kBruteUser;

/// What a pass over the counts finds worth a notice.
class BruteNotices {
 public:
  /// `hookTime`: the seconds that the scripts around the notices of one kind may take.
  explicit BruteNotices(const Config& conf, int hookTime = kBruteHookTime);

  /// The lines of the message, and what goes behind its subject.
  std::string summary;
  std::string subjectList;
  long long notices = 0;

  const Config& conf() const { return conf_; }
  /// The path of a hook script; empty when there is none. Looked for once.
  const std::string& preHook() const { return preHook_; }
  const std::string& hookOf(const BruteKind& kind) const { return &kind == &kBruteAddress ? addressHook_ : userHook_; }
  /// Records whose last_notify lies in the future.
  long long ahead = 0;
  /// Begins with a kind of its own: a new budget, and nothing left over.
  void beginKind();
  HookBudget& budget() { return budget_; }
  /// The slots of records that a pre-hook hears of, without being a notice.
  std::vector<long long> changed;
  /// The first record whose scripts there was no time for, and how many there are. -1 for none.
  long long firstWaiting = -1;
  long long waiting = 0;
  /// Records with this `last_entry` and later ones have changed since the last pass.
  long long addedSince = std::numeric_limits<long long>::max();

 private:
  const Config& conf_;
  int hookTime_;
  HookBudget budget_;
  std::string preHook_, addressHook_, userHook_;
};

/// Looks at one entry of the counts, in slot `index`. When it has at least `limit` failures, the last notice was an
/// hour ago and there have been failures since, it is not on the skip list and no hook objects, then it joins the
/// notices, its `last_notify` is now, and the kind's hook runs. 1 when it did.
///
/// The cheap questions come first, and names are looked up only for what would be a notice otherwise. A pre-hook is
/// asked before each notice; of entries that have changed without being one it hears when all notices are out. When the
/// time for scripts is spent, what needs one waits for the next pass.
int check_count_for(BruteNotices& notices, ConfigFile& counts, long long index, const BruteKind& kind, long long limit,
                    SkipList& skips);

/// Checks all counts, sends the administrators one message of all that is found, and keeps when they were told. 0 with
/// an error-log line when that could not be kept, or the message reached nobody: then they are told in the next pass.
/// Leaves the process at nobody.
[[nodiscard]] int tellBruteForce(const Config& conf, BruteFiles& files, int hookTime = kBruteHookTime);

}  // namespace zvtaskq
