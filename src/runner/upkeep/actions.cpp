#include "runner/upkeep/actions.h"

#include "runner/upkeep/program_update.h"

namespace zvtaskq {

namespace {

int update(const Task&) {
  return updateProgram();
}

constexpr ActionRow kRows[] = {
    {"update", "value", "program", update, "updates the panel software"},
};

}  // namespace

ActionRows panelActions() {
  return kRows;
}

}  // namespace zvtaskq
