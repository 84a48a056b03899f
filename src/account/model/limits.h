// What accounts may use, and what it means to use more.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

class Config;

/// How much of one thing an account may have.
struct Limit {
  bool isUnlimited = true;
  /// 0 or more; 0 as well when there is no limit.
  double amount = 0;
};

/// A thing that is limited. Limits and used amounts stand under the same key, in records of their own.
struct LimitKey {
  const char* key;
  /// A measured amount, of which 0 limits nothing; a count's 0 allows none.
  bool isMeasured;
  /// Using more suspends the account: always, or with `disk_usage_suspend`.
  enum class Suspends { never, always, withDisk } suspends;
};

/// All of them: traffic and disk space in megabytes, files, then what is counted.
std::span<const LimitKey> limitKeys();

/// The limit of that key in a record. Absent, empty and "unlimited" are none; `additional_bandwidth` is added to
/// `bandwidth`. One that is no number, below 0 or above 2^63 limits nothing, with an error-log line that names the file
/// and the account.
Limit limitOf(const ConfigFile& record, const char* key, const char* account);

/// The same without a word in the log, for those who only show it.
Limit shownLimitOf(const ConfigFile& record, const char* key);

/// A limit that is exceeded.
struct Exceeded {
  const LimitKey* what;
  double used;
  double limit;
  bool suspends;
};

/// The limits of a record that the used amounts of another exceed, in the order of the keys.
std::vector<Exceeded> exceededLimits(const ConfigFile& limits, const ConfigFile& used, const char* account,
                                     const Config& conf);
/// The keys of those that suspend, joined by ","; empty when there is none.
std::string suspensionReason(const std::vector<Exceeded>& exceeded);

/// Used amount in percent of the limit; 0 without one, and for a limit of 0.
double percentOf(double used, const Limit& limit);

/// A number of a record, finite and at least 0; 0 for anything else.
double amountOf(const ConfigFile& record, const char* key);

}  // namespace zvtaskq
