#include "tally/counts/actions.h"

#include "core/panel/run_state.h"
#include "tally/counts/account_cache.h"

namespace zvtaskq {

namespace {

int listAllUsers(const Task& task) {
  return dumpShowAllUsersCache(sys_conf, nullptr, task.isOn("add_created_users") ? 1 : 0, -1, &task.record);
}

constexpr ActionRow kRows[] = {
    {"cache", "value", "showallusers", listAllUsers, "rebuilds the administrators' list of all accounts"},
};

}  // namespace

ActionRows cacheActions() {
  return kRows;
}

}  // namespace zvtaskq
