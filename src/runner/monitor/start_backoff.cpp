#include "runner/monitor/start_backoff.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr int kMinute = 60;
/// Doubled so often, a minute is more than the hour that is the most.
constexpr int kMostDoublings = 6;
/// Passes are a minute apart, but for a second or two.
constexpr int kSlack = 10;
constexpr int kLongestWait = 3600;

struct Failures {
  int count = 0;
  long long last = 0;
};

Failures failuresOf(const ConfigFile& record, const char* service) {
  Failures failures;
  const bool isWhole = std::sscanf(record.getOrEmpty(service), "%d %lld", &failures.count, &failures.last) == 2;
  return isWhole && failures.count > 0 ? failures : Failures{};
}

}  // namespace

StartBackoff::StartBackoff() : known_(stateFile("service_starts")) {
  known_.useLock = false;
  if (isOn() && !known_.readFile()) known_.empty();
}

StartBackoff::~StartBackoff() {
  if (!isOn() || missed_.createPostString(1).view() == known_.createPostString(1).view()) return;
  known_.empty();
  known_.fill(&missed_);
  openStateFolder();
  if (!known_.writeFile()) errorLog("Unable to keep which services do not start: %s", known_.result.orEmpty());
}

bool StartBackoff::isOn() const {
  return sys_conf->service_backoff > 0;
}

bool StartBackoff::waits(const char* service) {
  if (!isOn()) return false;
  const Failures failures = failuresOf(known_, service);
  if (failures.count == 0) return false;
  const int over = failures.count - sys_conf->service_backoff;
  if (over < 0) return false;
  const int wait = std::min(kMinute << std::min(over, kMostDoublings), kLongestWait);
  const StampAge age = ageOf(failures.last, std::time(nullptr));
  if (age.isAhead || age.seconds >= wait - kSlack) return false;
  missed_.setParam(service, known_.getValue(service));
  debug(1000, "%s failed to start %d times in a row, tried again after %d seconds", service, failures.count, wait);
  return true;
}

void StartBackoff::failed(const char* service) {
  if (!isOn()) return;
  const int count = std::min(failuresOf(known_, service).count + 1, sys_conf->service_backoff + kMostDoublings);
  missed_.setParam(service, joined(std::to_string(count), " ", std::to_string(std::time(nullptr))).c_str());
}

}  // namespace zvtaskq
