// Services: the verb that a queue line asks for, and the watch over those that must run.
#pragma once

namespace zvtaskq {

class ListFile;

/// Makes sure that every service of "services.status" whose value is not "OFF" is running: starts it, restarts it, and
/// tells the administrators when both were in vain. Five seconds pass after each attempt. One that failed again and
/// again is let be for a while, where `service_backoff` says so.
void checkServices();

/// Runs one verb ("start", "stop", "restart", "reload", "graceful", "reread") for a service, as root, through the
/// system's service control, and says in the error or system log how it went. A web server takes its PHP-FPM services
/// along. One that runs is left alone when its own check refuses its configuration (service_check.h). The name must be
/// one that isServiceName allows. Leaves nobody's identity.
void doservice(const char* service, const char* verb);

/// When `process_list_debug` is set: prints the list the service was missed in, and the system's own.
void debug_processes(const char* service, const ListFile& list);

}  // namespace zvtaskq
