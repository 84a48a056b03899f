#include "runner/monitor/watched_processes.h"

#include <string>

#include "core/panel/state_folder.h"
#include "core/sys/log.h"
#include "runner/monitor/process_table.h"

namespace zvtaskq {

namespace {

std::string firstOf(const char* pids) {
  const std::string all = pids == nullptr ? "" : pids;
  return all.substr(0, all.find(' '));
}

}  // namespace

WatchedProcesses::WatchedProcesses() : known_(stateFile("watched_processes")) {
  // Written whole and put in place by rename: a pass that only reads needs no lock.
  known_.useLock = false;
  if (!known_.readFile()) known_.empty();
  known_.useLock = true;
}

WatchedProcesses::~WatchedProcesses() {
  if (!isChanged_) return;
  openStateFolder();
  if (!known_.writeFile()) errorLog("Unable to keep where services run: %s", known_.result.orEmpty());
}

void WatchedProcesses::readAll() {
  if (isRead_) return;
  isRead_ = true;
  getProcessList(processes_);
  names_.fill_name(&processes_);
}

const ListFile& WatchedProcesses::all() {
  readAll();
  return names_;
}

bool WatchedProcesses::has(const char* service) {
  const std::string name = keptOfName(service);
  if (const char* pid = known_.getValue(name.c_str()); pid != nullptr && processName(pid) == name) return true;
  readAll();
  const std::string pid = firstOf(processes_.getValue(name.c_str()));
  if (pid.empty()) return false;
  known_.setParam(name.c_str(), pid.c_str());
  isChanged_ = true;
  return true;
}

}  // namespace zvtaskq
