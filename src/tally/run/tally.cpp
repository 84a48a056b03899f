#include "tally/run/tally.h"

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "tally/counts/account_cache.h"
#include "tally/run/allocation.h"
#include "tally/run/tally_run.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

std::string_view usageFileOf(int type) {
  return type == kTallyReseller ? "reseller.usage" : "user.usage";
}

}  // namespace

Tally::Tally(int type, const Config* conf, const char* name) : Tally(type, conf, name, nullptr) {}

Tally::Tally(int type, const Config* conf, const char* name, TallyRun* run)
    : type_(type), name_(Text::copyOf(name)), conf_(conf), run_(run) {}

Tally::~Tally() = default;

/// Whether the scope is one there is, with the name that it wants; otherwise the error log says so.
int Tally::isRightType(const char* words) {
  const bool isServer = type_ == kTallyServer;
  const bool isKnown = isServer || type_ == kTallyReseller || type_ == kTallyUser;
  if (isKnown && isServer == name_.isEmpty()) return 1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  errorLog(words, type_, name_.orEmpty());
#pragma GCC diagnostic pop
  return 0;
}

int Tally::tallyHo(ConfigFile* quotas, ConfigFile* inodes, int mask) {
  if (!isRightType("Tally::tallyHo: wrong init type %d %s")) return 0;
  quotas_ = quotas;
  inodes_ = inodes;
  if (run_ == nullptr) {
    ownRun_ = std::make_unique<TallyRun>(*conf_, quotas, inodes, mask == 0 ? kTallyAll : mask);
    run_ = ownRun_.get();
  }
  load_shared_ips();
  switch (type_) {
    case kTallyServer:
      return tallyAll(mask);
    case kTallyReseller:
      return tallyReseller(mask);
    default:
      return tallyUser(mask);
  }
}

void Tally::load_shared_ips() {
  if (run_ != ownRun_.get()) return;
  std::vector<Address> addresses;
  if (!readAddresses(addresses)) return;
  for (const Address& address : addresses) {
    if (address.status == kSharedStatus) sharedIps_.addElement(address.text.c_str());
  }
}

int Tally::getUsage() {
  if (!isRightType("Tally::getUsage: wrong init type %d %s")) return 0;
  work_.empty();
  if (type_ == kTallyServer) {
    work_.setFilename(adminFile("admin.usage").c_str());
    work_.belongsTo(kPanelUser);
  }
  const int isRead =
      type_ == kTallyServer ? work_.readFile() : readAccountFile(name_, usageFileOf(type_).data(), work_);
  if (!isRead) {
    errorLog("Unable to read %s: %s", work_.getFilename(), work_.result.orEmpty());
    return 0;
  }
  totals = TallyTotals::of(work_);
  return 1;
}

int Tally::getAllocations() {
  if (!isRightType("Tally::getAllocations: wrong init type %d %s")) return 0;
  allocation = std::make_unique<Allocation>();
  switch (type_) {
    case kTallyServer:
      return usageAll();
    case kTallyReseller:
      return usageReseller();
    default:
      return usageUser();
  }
}

double Tally::getTallyTotal(const char* path) {
  return zvtaskq::getTallyTotal(path);
}

int Tally::dumpShowAllUsersCache(const Config* conf, const ListFile* accounts, int createdUsers, int connection,
                                 const ConfigFile* selection) {
  return zvtaskq::dumpShowAllUsersCache(conf, accounts, createdUsers, connection, selection);
}

}  // namespace zvtaskq
