// A server's own check of its configuration, before it is told to read it anew.
#pragma once

namespace zvtaskq {

/// Whether a service had better not be told that verb: `service_check` is on, the verb makes it read its configuration
/// anew, it runs, and its own check complains. The administrators get the check's words then, the same ones once a day
/// at most, and the error log has a line. A service without such a check, one that does not run, and a check that says
/// nothing keep nobody from anything. Called under any identity, leaves nobody's.
bool isKeptFrom(const char* service, const char* verb);

}  // namespace zvtaskq
