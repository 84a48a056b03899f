#include "account/model/addresses.h"

#include <algorithm>
#include <string_view>

#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "core/text/split.h"

namespace zvtaskq {

namespace {

void useRecordOf(const char* address, ConfigFile& record) {
  record.setFilename(adminFile(joined("ips/", address).c_str()).c_str());
  record.belongsTo(kPanelUser);
}

Address addressOf(const char* text) {
  Address address;
  address.text = text;
  ConfigFile record(nullptr);
  address.hasRecord = readAddress(text, record) != 0;
  if (!address.hasRecord) {
    errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
    return address;
  }
  address.status = record.getOrEmpty("status");
  address.linked = addressesIn(record.getValue("linked"));
  record.getValue("users", &address.users);
  return address;
}

}  // namespace

int readAddress(const char* address, ConfigFile& record) {
  if (!isValidIP(address)) return fail(record.result, "Invalid address");
  useRecordOf(address, record);
  return record.readFile();
}

int readAddresses(std::vector<Address>& addresses) {
  PanelList list(adminFile("ip.list"));
  if (!list.readFile()) {
    errorLog("ip.list: readFile error: %s", list.result.orEmpty());
    return 0;
  }
  for (int i = 0; i < list.size(); ++i) {
    const char* text = list.getElementAt(i);
    if (isValidIP(text)) {
      addresses.push_back(addressOf(text));
    } else {
      errorLog("%s: %.100s is no address", list.getFilename(), text);
    }
  }
  return 1;
}

int changeAddress(const char* address, const std::function<bool(ConfigFile& record)>& change) {
  ConfigFile record(nullptr);
  useRecordOf(address, record);
  const RecordLock lock(record);
  if (readAddress(address, record) && (!change(record) || record.writeFile())) return 1;
  errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
  return 0;
}

std::vector<std::string> addressesIn(const char* list) {
  std::vector<std::string> addresses;
  for (const std::string_view one : wordsIn(list == nullptr ? "" : list, ',')) {
    std::string text(one);
    if (isValidIP(text.c_str())) addresses.push_back(std::move(text));
  }
  return addresses;
}

}  // namespace zvtaskq
