#include "runner/monitor/service_verbs.h"

#include "runner/monitor/services_table.h"

namespace zvtaskq {

void setHardest(PendingServices& pending, const ConfigFile& record) {
  const auto rank = [](const ConfigFile& task) { return placeIn(task.getValue("value"), kServiceVerbs); };
  const char* service = record.getValue("action");
  const auto stored = pending.find(service);
  if (stored != pending.end()) {
    if (rank(stored->second) >= rank(record)) return;
    pending.erase(stored);
  }
  pending.try_emplace(service, &record);
}

}  // namespace zvtaskq
