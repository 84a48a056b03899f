#include "services/certificate/actions.h"

#include "services/certificate/check.h"

namespace zvtaskq {

namespace {

int checkAll(const Task& task) {
  return checkCertificates(task.getOrNull("domain"));
}

constexpr ActionRow kRows[] = {
    {"rewrite", "value", "letsencrypt", checkAll, "checks when certificates end, and renews them"},
};

}  // namespace

ActionRows certificateActions() {
  return kRows;
}

}  // namespace zvtaskq
