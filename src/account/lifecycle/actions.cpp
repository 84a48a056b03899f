#include "account/lifecycle/actions.h"

#include "account/lifecycle/deletion.h"
#include "account/lifecycle/disk_quota.h"

namespace zvtaskq {

namespace {

constexpr ActionRow kRows[] = {
    {"delete", "value", "account", deleteAccounts, "deletes accounts"},
    {"rewrite", "value", "quota", rewriteQuota, "sets the disk quota of one user or all"},
};

}  // namespace

ActionRows lifecycleActions() {
  return kRows;
}

}  // namespace zvtaskq
