#include "account/lifecycle/account_lists.h"
#include "account/model/limits.h"
#include "core/panel/panel_paths.h"
#include "core/panel/task.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr const char* kAllocation = "reseller.allocation";
constexpr const char* kUnlimited = "unlimited";

/// A reseller as a creator: what he may give away and what he gave. His own limits stand in where none of their own are
/// set for what he gives.
struct Reseller {
  ConfigFile limits{nullptr};
  ConfigFile own{nullptr};
  ConfigFile given{nullptr};

  int read(const char* name, Text& result) {
    if (!readAccount(name, own)) return fail(result, "Unable to read account ", name, " : ", own.result);
    if (!isReseller()) return 1;
    if (!readAccountFile(name, "reseller.conf", limits)) return fail(result, limits.result);
    return readAccountFile(name, kAllocation, given) ? 1 : fail(result, given.result);
  }
  bool isReseller() const { return accountTypeOf(own) == AccountType::reseller; }
  const ConfigFile& holding(const char* key) const { return limits.existsParam(key) ? limits : own; }
  bool mayOversell() {
    const Task settings{"", limits};
    return settings.isOn("oversell");
  }
};

/// Whether one thing more fits: what is wanted, beside what is given away, below the limit. A measured limit of 0
/// limits nothing, and nobody with a limit can grant more than it.
bool fits(const LimitKey& row, const Limit& most, const Limit& given, const Limit& wanted) {
  if (most.isUnlimited || (row.isMeasured && most.amount <= 0)) return true;
  if (wanted.isUnlimited || given.isUnlimited) return false;
  return given.amount + wanted.amount <= most.amount;
}

}  // namespace

int mayAllocate(const ConfigFile& record, Text& result) {
  const char* creator = record.getOrEmpty("creator");
  Reseller reseller;
  if (!reseller.read(creator, result)) return 0;
  if (!reseller.isReseller() || reseller.mayOversell()) return 1;
  for (const LimitKey& row : limitKeys()) {
    const Limit most = limitOf(reseller.holding(row.key), row.key, creator);
    Limit given = limitOf(reseller.given, row.key, creator);
    // What he never gave away yet is nothing, not everything.
    if (!reseller.given.existsParam(row.key)) given = {false, 0};
    if (fits(row, most, given, limitOf(record, row.key, creator))) continue;
    return fail(result, "Reseller ", creator, " has not enough left of ", row.key);
  }
  return 1;
}

int allocate(const ConfigFile& record, bool add, Text& result) {
  const char* creator = record.getOrEmpty("creator");
  Reseller reseller;
  Text ignored;
  // Whose creator is gone, or is an administrator, was given what nobody counts.
  if (!reseller.read(creator, ignored) || !reseller.isReseller()) return 1;
  const auto change = [&](ConfigFile& given) {
    for (const LimitKey& row : limitKeys()) {
      const Limit one = limitOf(record, row.key, creator);
      if (given.isValue(row.key, kUnlimited)) continue;
      const double amount = amountOf(given, row.key) + (add ? one.amount : -one.amount);
      if (!one.isUnlimited) given.setParam(row.key, amount < 0 ? 0 : amount, "%.12g");
      if (one.isUnlimited && add) given.setParam(row.key, kUnlimited);
    }
  };
  return changeRecord(accountFile(creator, kAllocation), change, result);
}

}  // namespace zvtaskq
