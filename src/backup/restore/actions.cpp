#include "backup/restore/actions.h"

#include "account/model/account_record.h"

namespace zvtaskq {

namespace {

int restoreForOwner(const Task& task) {
  ConfigFile owner(nullptr);
  return readOwner(task, owner);
}

constexpr ActionRow kRows[] = {
    {"restore", "type", "reseller", restoreForOwner, "restores users of a reseller"},
    {"restore", "type", "admin", restoreForOwner, "restores users for an administrator"},
};

}  // namespace

ActionRows restoreActions() {
  return kRows;
}

}  // namespace zvtaskq
