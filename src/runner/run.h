// The order of one run.
#pragma once

namespace zvtaskq {

class Config;

/// One whole run: every queue file once, the service monitor, then the upkeep passes that the settings ask for. With
/// the custom-build flag only the custom-build queue.
void doQueue(const Config& conf);

}  // namespace zvtaskq
