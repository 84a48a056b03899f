#include "tally/run/allocation.h"

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/run/tally.h"
#include "tally/run/tally_run.h"

namespace zvtaskq {

namespace {

constexpr const char* kKeys[] = {"bandwidth", "quota",    "inode",   "vdomains", "nsubdomains", "nemails",
                                 "nemailf",   "nemailml", "nemailr", "mysql",    "domainptr"};
constexpr double kWhole = 1e15;

/// Writes a record of allocations; unchanged ones stay as they are.
int writeAllocation(const Allocation& sums, PanelRecord& record) {
  sums.put(record);
  return record.writeFile();
}

}  // namespace

void Allocation::add(const ConfigFile& limits, const char* account) {
  for (int i = 0; i < kLimits; ++i) {
    const Limit limit = limitOf(limits, kKeys[i], account);
    sums_[i].isUnlimited = sums_[i].isUnlimited || limit.isUnlimited;
    sums_[i].amount += limit.amount;
  }
}

void Allocation::add(const Allocation& other) {
  for (int i = 0; i < kLimits; ++i) {
    sums_[i].isUnlimited = sums_[i].isUnlimited || other.sums_[i].isUnlimited;
    sums_[i].amount += other.sums_[i].amount;
  }
}

void Allocation::put(ConfigFile& record) const {
  for (int i = 0; i < kLimits; ++i) {
    const double amount = sums_[i].amount;
    const bool isWhole = amount < kWhole && amount == static_cast<double>(static_cast<long long>(amount));
    if (sums_[i].isUnlimited) {
      record.setParam(kKeys[i], "unlimited");
    } else {
      record.setParam(kKeys[i], amount, isWhole ? "%.0f" : "%f");
    }
  }
}

int Tally::usageUser() {
  static_assert(std::size(kKeys) == 11);
  if (const Allocation* known = run_ == nullptr ? nullptr : run_->allotted(joined(name_)); known != nullptr) {
    allocation->add(*known);
    return 1;
  }
  work_.empty();
  if (!readAccount(name_, work_)) {
    errorLog("Tally::usageUser(): Unable to read user %s's usage file %s", name_.orEmpty(), work_.result.orEmpty());
    return 0;
  }
  allocation->add(work_, name_);
  return 1;
}

int Tally::usageReseller() {
  const AsUser panel(kPanelUser);
  PanelList users(accountFile(name_, "users.list"));
  if (!users.readFile()) {
    errorLog("Tally:usageReseller(): *** Unable to read %s reseller files ***", name_.orEmpty());
    return 0;
  }
  for (int i = 0; i < users.size(); ++i) {
    Tally user(kTallyUser, conf_, users.getElementAt(i), run_);
    // One that cannot be read has had its words.
    if (user.getAllocations()) allocation->add(*user.allocation);
  }
  PanelRecord record(accountFile(name_, "reseller.allocation"));
  if (writeAllocation(*allocation, record)) return 1;
  errorLog("Error writing %s: %s", record.getFilename(), record.result.orEmpty());
  return 0;
}

int Tally::usageAll() {
  const AsUser panel(kPanelUser);
  int whole = 1;
  for (const char* list : {"reseller.list", "admin.list"}) {
    PanelList names(adminFile(list));
    if (!names.readFile()) {
      errorLog("*** Unable to read %s ***", names.getFilename());
      return 0;
    }
    for (int i = 0; i < names.size(); ++i) {
      Tally reseller(kTallyReseller, conf_, names.getElementAt(i), run_);
      whole = reseller.getAllocations() && whole ? 1 : 0;
      if (reseller.allocation != nullptr) allocation->add(*reseller.allocation);
    }
  }
  PanelRecord record(adminFile("admin.allocation"));
  if (writeAllocation(*allocation, record)) return whole;
  errorLog("Tally::usageAll(1):: error writing admin allocatin file: %s", record.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
