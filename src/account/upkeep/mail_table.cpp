#include "account/upkeep/mail_table.h"

#include <cerrno>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr unsigned kMode = 0640;
constexpr char kQuote = '"';

class MailTable : public MailRecord {
 public:
  explicit MailTable(const char* file) : MailRecord(joined(sys_conf->emailvirtual, "/", file).c_str()) {
    fileMode = kMode;
    quoteChar = kQuote;
    quoteCount = 2;
  }

  /// One that is not there is empty.
  [[nodiscard]] int load() {
    if (isMissing()) return 1;
    if (!read()) return 0;
    trimValueFront();
    return 1;
  }

  bool holds(const ConfigFile& wanted) const {
    if (size() != wanted.size()) return false;
    for (long long i = 0; i < size(); ++i) {
      if (textOf(getNameAt(i)) != textOf(wanted.getNameAt(i))) return false;
      if (textOf(getValueAt(i)) != textOf(wanted.getValueAt(i))) return false;
    }
    return true;
  }

  [[nodiscard]] int replaceBy(const ConfigFile& wanted) {
    empty();
    for (long long i = 0; i < wanted.size(); ++i) {
      setParam(wanted.getNameAt(i), joined(" ", wanted.getValueAt(i)).c_str());
    }
    changed = true;
    return writeFile();
  }

 private:
  static std::string_view textOf(const char* text) { return text == nullptr ? std::string_view() : text; }

  bool isMissing() const {
    const AsUser mail(kMailUser);
    struct stat what {};
    return sys::lstat(getFilename(), what) != 0 && errno == ENOENT;
  }
};

int tell(const MailTable& table) {
  errorLog("%s: %s", table.getFilename(), table.result.orEmpty());
  return 0;
}

}  // namespace

std::string mailTableName(const std::string& name) {
  return name.find(':') == std::string::npos ? name : joined("\"", name, "\"");
}

int writeMailTable(const char* file, ConfigFile& wanted, const std::function<bool(const char* name)>& stays) {
  MailTable table(file);
  const RecordLock lock(table);
  if (!table.load()) return tell(table);
  for (long long i = 0; i < table.size(); ++i) {
    const char* name = table.getNameAt(i);
    const char* value = table.getValueAt(i);
    const bool isPair = value != nullptr && *value != '\0';
    if (isPair && !wanted.existsParam(name) && stays(name)) wanted.setParam(name, value);
  }
  return table.holds(wanted) || table.replaceBy(wanted) ? 1 : tell(table);
}

}  // namespace zvtaskq
