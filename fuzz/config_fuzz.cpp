// Whatever stands in zorvane.conf: the settings it gives are in range, and written out they read back as they are.
#include <cmath>
#include <cstring>

#include "core/config/settings.h"
#include "core/config/settings_checks.h"
#include "support.h"

using namespace zvtaskq;
using namespace zvtaskq::fuzz;

namespace {

void loadAndCheck(Settings& settings, const ConfigFile& record) {
  Text result;
  settings.load(record);
  static_cast<void>(checkSettings(settings, record, result));
  require(settings.handshake_timeout <= settings.timeout, "handshake_timeout");
  require(settings.request_timeout <= settings.timeout, "request_timeout");
  require(settings.session_minutes >= 1 && settings.session_minutes <= 35791, "session_minutes");
  require(settings.max_username_length >= 8 && settings.max_username_length <= 14, "max_username_length");
  require(settings.crypt_method <= 6, "crypt_method");
  require(settings.pigz < 1 || settings.backup_gzip, "pigz");
  require(std::isfinite(settings.check_load), "check_load");
  require(!settings.userdata.isEmpty(), "userdata");
}

/// Numbers too long for a record's sixty-four characters come back cut.
bool isShort(const char* value) {
  return std::strlen(value) < 32;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  standAside();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  ConfigFile record(nullptr);
  Settings::putRecordDefaults(record);
  record.readFromString(text.c_str());
  Settings settings;
  loadAndCheck(settings, record);

  ConfigFile written(nullptr);
  settings.store(written);
  Settings again;
  loadAndCheck(again, written);
  ConfigFile rewritten(nullptr);
  again.store(rewritten);
  require(rewritten.size() == written.size(), "number of settings");
  for (long long i = 0; i < written.size(); ++i) {
    const char* value = written.getValueAt(i);
    require(!isShort(value) || std::strcmp(value, rewritten.getValueAt(i)) == 0, written.getNameAt(i));
  }
  return 0;
}
