#include "account/model/server_address.h"

#include "account/model/addresses.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/system_info.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/identity.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

bool isServerAddress(const char* address) {
  ConfigFile record(nullptr);
  return isValidIPv4(address) && readAddress(address, record) && record.isValue("status", kServerStatus);
}

}  // namespace

std::string mainServerAddress() {
  const std::string path = adminFile("ip.list");
  PanelList addresses(path);
  if (addresses.readFile()) {
    for (int i = 0; i < addresses.size(); ++i) {
      const char* address = addresses.getElementAt(i);
      if (isServerAddress(address)) return address;
    }
  }
  return getDeviceAddress(sys_conf->ethernet_dev);
}

}  // namespace zvtaskq
