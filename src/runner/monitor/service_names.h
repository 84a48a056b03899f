// What the services are called on this machine.
#pragma once

#include <string>

namespace zvtaskq {

struct ServiceName {
  /// What the system's service control knows it by; one that isServiceName allows when the service's own is.
  std::string unit;
  /// The name that its process shows.
  std::string process;
};

/// The service that a name of the panel's means here: where `service_names` has entries, "httpd" is Nginx when that is
/// the web server.
std::string serviceMeantBy(const char* service);

/// By `service_names`: entries "name:unit:process", separated by commas, of which an empty unit or process is the name
/// itself. A service without an entry goes by its own name. An entry that cannot be one is passed over, with an
/// error-log line a day.
ServiceName serviceNameOf(const char* service);

}  // namespace zvtaskq
