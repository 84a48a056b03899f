#include "runner/monitor/service_verbs.h"

#include "core/record/config_file.h"
#include "runner/monitor/services_table.h"

namespace zvtaskq {

void setHardest(ConfigFile& pending, const ConfigFile& record) {
  const char* service = record.getValue("action");
  const char* stored = pending.getValue(service);
  if (stored != nullptr) {
    ConfigFile before(nullptr);
    before.fillFromPost(stored);
    const int had = existIn(before.getValue("value"), kServiceVerbs);
    if (had >= existIn(record.getValue("value"), kServiceVerbs)) return;
  }
  const Text line = record.createPostString(1);
  pending.setParam(service, line.get());
}

}  // namespace zvtaskq
