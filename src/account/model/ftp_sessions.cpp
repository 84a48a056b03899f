#include "account/model/ftp_sessions.h"

#include <csignal>
#include <vector>

#include "account/model/account_holder.h"
#include "core/process/execute.h"
#include "core/process/running_process.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr int kAskedFor = 2000;
constexpr int kBetweenLooks = 50;
/// So many are waited for; of more there are too few descriptors.
constexpr std::size_t kMostAsked = 200;
/// What their sessions are called, and those of their variants that ask a database.
constexpr const char* kServers[] = {"pure-ftpd", "proftpd"};

bool isServer(const std::string& name) {
  for (const char* server : kServers) {
    if (name.starts_with(server)) return true;
  }
  return false;
}

/// What is no more needs not be waited for.
bool isGone(const Descriptor& process) {
  return sys::signalProcess(process.get(), 0) != 0;
}

}  // namespace

void endFtpSessions(const std::set<uid_t>& users) {
  if (users.empty()) return;
  const AsRoot root;
  const auto isMeant = [&](const RunningProcess& process) {
    return process.effective >= kFirstPerson && users.contains(process.effective) && isServer(process.name);
  };
  std::vector<Descriptor> asked;
  eachProcess(isMeant, [&](Descriptor&& process) {
    const bool mayAsk = asked.size() < kMostAsked;
    static_cast<void>(sys::signalProcess(process.get(), mayAsk ? SIGTERM : SIGKILL));
    if (mayAsk) asked.push_back(std::move(process));
  });
  for (int waited = 0; !asked.empty() && waited < kAskedFor; waited += kBetweenLooks) {
    nap(kBetweenLooks);
    std::erase_if(asked, isGone);
  }
  for (const Descriptor& process : asked) static_cast<void>(sys::signalProcess(process.get(), SIGKILL));
}

}  // namespace zvtaskq
