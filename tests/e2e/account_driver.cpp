// The work on an account without a run around it: see support/driver.h.
#include "account/lifecycle/creation.h"
#include "account/lifecycle/deletion.h"
#include "account/suspension/suspension.h"
#include "services/dns/cluster.h"
#include "support/driver.h"

using namespace zvtaskq;

namespace {

/// The account that a record in URL-encoded form describes, with a password hash.
int create(const DriverCall& call) {
  ConfigFile record(nullptr);
  record.fillFromPost(call.at(0));
  return createAccount(record, call.at(1), call.result);
}

template <SuspendedBy by>
int suspend(const DriverCall& call) {
  return suspendAccount(call.at(0), call.at(1), by, call.result);
}

template <SuspendedBy by>
int activate(const DriverCall& call) {
  return activateAccount(call.at(0), by, call.result);
}

int peerWithOthers(const DriverCall& call) {
  call.result = zvtaskq::peerWithOthers(call.at(0)).c_str();
  return 1;
}

constexpr DriverRow kRows[] = {
    {"create", create},
    {"delete", [](const DriverCall& call) { return deleteAccount(call.at(0), false, call.result); }},
    {"suspend", suspend<SuspendedBy::person>},
    {"suspendByTally", suspend<SuspendedBy::tally>},
    {"activate", activate<SuspendedBy::person>},
    {"activateByTally", activate<SuspendedBy::tally>},
    {"dropReasons", [](const DriverCall& call) { return dropSuspensionReasons(call.at(0), call.at(1), call.result); }},
    {"suspendDomain",
     [](const DriverCall& call) { return suspendDomain(call.at(0), call.at(1), call.at(2), call.result); }},
    {"activateDomain",
     [](const DriverCall& call) { return activateDomain(call.at(0), call.at(1), call.at(2), call.result); }},
    {"peerWithOthers", peerWithOthers},
};

}  // namespace

int main(int count, char** words) {
  return driverMain({words, static_cast<std::size_t>(count)}, kRows);
}
