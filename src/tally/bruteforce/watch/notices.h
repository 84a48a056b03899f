// Telling the administrators of addresses and accounts with many failed log-ins.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zvtaskq {

class Config;
class ConfigFile;
class SkipList;
struct BruteFiles;

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
  explicit BruteNotices(const Config& conf);

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

 private:
  const Config& conf_;
  std::string preHook_, addressHook_, userHook_;
};

/// Looks at one entry of the counts, in slot `index`. When it has at least `limit` failures, the last notice was an
/// hour ago and there have been failures since, it is not on the skip list and no hook objects, then it joins the
/// notices, its `last_notify` is now, and the kind's hook runs. 1 when it did.
///
/// A pre-hook hears of every entry that is not on the skip list. Where there is none, the cheap questions come first,
/// and names are looked up only for what would be a notice otherwise.
int check_count_for(BruteNotices& notices, ConfigFile& counts, long long index, const BruteKind& kind, long long limit,
                    SkipList& skips);

/// Checks all counts, sends the administrators one message of all that is found, and keeps when they were told. 0 with
/// an error-log line when that could not be kept. Leaves the process at nobody.
[[nodiscard]] int tellBruteForce(const Config& conf, BruteFiles& files);

}  // namespace zvtaskq
