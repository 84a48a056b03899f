#include "runner/monitor/service_names.h"

#include <algorithm>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/text/text.h"
#include "runner/monitor/php_fpm.h"

namespace zvtaskq {

namespace {

/// What stands before the next `end`; the text moves behind it.
std::string take(std::string_view& text, char end) {
  const std::string_view part = text.substr(0, text.find(end));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return std::string(trimmed(part));
}

/// "name:unit:process". False when it cannot be one.
bool readEntry(std::string_view entry, std::string& service, ServiceName& name) {
  const auto colons = std::count(entry.begin(), entry.end(), ':');
  service = take(entry, ':');
  name = {take(entry, ':'), take(entry, ':')};
  if (name.unit.empty()) name.unit = service;
  if (name.process.empty()) name.process = service;
  return colons == 2 && isServiceName(service.c_str()) && isServiceName(name.unit.c_str()) &&
         name.process.find('/') == std::string::npos;
}

}  // namespace

std::string serviceMeantBy(const char* service) {
  const bool isNginx = !sys_conf->service_names.isEmpty() && sys_conf->nginx && std::string_view(service) == "httpd";
  return isNginx ? "nginx" : service;
}

ServiceName serviceNameOf(const char* service) {
  std::string_view entries = sys_conf->service_names.view();
  const std::string wanted = serviceMeantBy(service);
  while (!entries.empty()) {
    const std::string entry = take(entries, ',');
    std::string known;
    ServiceName name;
    if (!readEntry(entry, known, name)) {
      if (isDueAgain("service_names")) errorLog("service_names: '%s' is no name:unit:process", entry.c_str());
    } else if (known == wanted) {
      return name;
    }
  }
  return {wanted, wanted};
}

}  // namespace zvtaskq
