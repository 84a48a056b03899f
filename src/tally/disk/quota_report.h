// What the tools of the quota system print: a line a user, with what it has used and what it may use.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace zvtaskq {

/// What a user has used: blocks of 1024 bytes, and inodes.
struct UsedSpace {
  unsigned long long blocks = 0;
  unsigned long long inodes = 0;
};
using SpaceByUser = std::map<std::string, UsedSpace, std::less<>>;

/// A line of a report.
struct QuotaRow {
  std::string_view user;
  UsedSpace used;
  /// One of the two is over its limit.
  bool isOver = false;
};

/// Takes a line of `repquota -u` apart: the user, "+-" for what is over its limit, used, soft and hard limit of the
/// blocks and the inodes, each with the time of grace where there is one. False for titles, for numbers without a user
/// ("#1001"), and for whatever else is no such line.
bool readQuotaRow(std::string_view line, QuotaRow& row);

/// The same for a line of "report -u -b -i" of `xfs_quota`: the user, then twice used, soft, hard, the warnings, and
/// the time of grace in brackets.
bool readXfsQuotaRow(std::string_view line, QuotaRow& row);

}  // namespace zvtaskq
