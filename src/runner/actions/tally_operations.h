// What usage accounting does for queue lines and for a run's upkeep. A build that holds the work provides it.
//
// Each returns 1 on success.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ListFile;

/// What a tally measures; the modes of the three action words.
inline constexpr int kTallyBandwidth = 18;
inline constexpr int kTallyQuota = 20;
inline constexpr int kTallyEverything = 32767;

struct TallyOperations {
  Operation<> readAllQuotas{"the reading of all quotas"};
  Operation<int /*mode*/> tallyAll{"the tally of all accounts"};
  Operation<const char* /*user*/, int /*mode*/> tallyUser{"the tally of a user"};
  Operation<const char* /*reseller*/, int /*mode*/> tallyReseller{"the tally of a reseller"};
  Operation<> totalAllocations{"the allocation totals"};
  /// The bandwidth recorded in the users' home directories.
  Operation<> tallyHomeDirectories{"the bandwidth of home directories"};
  /// The cached list of all users: of the selected ones, adding the newly created ones when asked.
  Operation<ListFile* /*selected*/, bool /*addCreated*/> cacheAllUsers{"the cached list of all users"};
  /// Sets usage counters back: all, one user's, all without a trace.
  Operation<> resetAll{"the reset of all usage counters"};
  Operation<const char* /*user*/> resetUser{"the reset of a user's usage counters"};
  Operation<> cleanResetAll{"the clean reset of all usage counters"};
  Operation<> checkPartitions{"the partition usage check"};
  Operation<> checkLoad{"the system load check"};
  Operation<> scanBruteForceLogs{"the brute-force log scan"};
  Operation<> clearBruteForceEntries{"the clearing of old brute-force entries"};
};

/// The operations this build holds.
TallyOperations& tallyOperations();

}  // namespace zvtaskq
