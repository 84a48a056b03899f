// What the whole process shares once it has started: the configuration, and whether this is a demonstration.
#pragma once

namespace zvtaskq {

class Config;

/// The loaded configuration; null before the start-up hands it over. Not owned.
extern const Config* sys_conf;

/// Hands the configuration over to everything below, and switches on what it asks of the lower layers. Null takes
/// it back.
void useConfiguration(const Config* conf);

/// Whether this panel is a public demonstration, where nothing may be queued, stored or changed: the file
/// "conf/demo" stands in the panel's folder (`serverpath`). Looked up once, when the configuration is handed over.
bool isDemo();

}  // namespace zvtaskq
