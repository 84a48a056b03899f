// What a tally adds up: for an account, a reseller, the server.
#pragma once

#include "core/record/config_file.h"

namespace zvtaskq {

/// What a run measures: the bits of a tally mask. 0 stands for all of them.
enum TallyMask : int {
  kTallyStatistics = 1,
  kTallyBandwidth = 2,
  kTallyDisk = 4,
  kTallyHousekeeping = 8,
  kTallyCounts = 16,
  kTallySuspend = 32,
  kTallyUsage = kTallyBandwidth | kTallyDisk,
  kTallyAll = 32767,
};

/// Bytes of a megabyte, in which usage records count; and how they write them: six digits after the point.
inline constexpr double kMegabyte = 1048576;
inline constexpr const char* kMegabyteForm = "%f";

struct TallyTotals {
  /// Megabytes.
  double quota = 0;
  long long db_quota = 0;
  long long email_quota = 0;
  long long inode = 0;
  /// Megabytes.
  double bandwidth = 0;
  int nusers = 0;
  int vdomains = 0;
  int nsubdomains = 0;
  int nemails = 0;
  int nemailf = 0;
  int nemailml = 0;
  int nemailr = 0;
  long long email_deliveries = 0;
  long long email_deliveries_incoming = 0;
  long long email_deliveries_outgoing = 0;
  int mysql = 0;
  int domainptr = 0;
  int ftp = 0;

  void add(const TallyTotals& other);
  /// Puts those that the mask measures into a usage record: disk figures with its disk bit, bandwidth with its
  /// bandwidth bit, the rest with its counts bit, `nusers` among them only `withUsers`.
  void put(ConfigFile& usage, int mask, bool withUsers) const;
  /// Those of a usage record; what is missing there, or no number, is 0.
  static TallyTotals of(const ConfigFile& usage);
};

}  // namespace zvtaskq
