#include "notify/template_notice.h"

#include <ctime>

#include "core/config/config.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/record/config_file.h"
#include "core/record/record_lock.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/template/tokenizer.h"
#include "notify/ticket.h"

namespace zvtaskq {

namespace {

constexpr int kGeneral = 1;

/// The settings are read anew: since the check began, hooks have run and others may have written there.
void keepStamp(const char* stamp) {
  const std::string path = adminSettingsFile();
  ConfigFile settings(path.c_str());
  const RecordLock lock(settings);
  if (!settings.readFile()) {
    errorLog("Unable to read %s : %s", path.c_str(), settings.result.orEmpty());
    return;
  }
  settings.setParam(stamp, static_cast<long long>(std::time(nullptr)));
  if (!settings.writeFile()) errorLog("Unable to write %s : %s", path.c_str(), settings.result.orEmpty());
}

void fill(const Notice& notice, const Config& conf, ConfigFile& tokens, Tokenizer& text) {
  const std::string path = templatePath(conf, notice.templateFile);
  Tokenizer::add_footer_token(tokens, &conf);
  const AsRoot root;
  if (!text.runFromFile(path.c_str(), tokens)) notice.tellFillError(text.result.orEmpty());
}

}  // namespace

std::string adminSettingsFile() {
  return adminFile("admin.conf");
}

long long secondsSinceLast(const Notice& notice, const ConfigFile& settings) {
  long long last = 0;
  static_cast<void>(settings.getValue(notice.stamp, &last));
  const StampAge age = ageOf(last, std::time(nullptr));
  if (age.isAhead) {
    errorLog("%s: %s is %lld, which is not in the past. Taking it for unset.", settings.getFilename(), notice.stamp,
             last);
  }
  return age.seconds;
}

void sendNotice(const Notice& notice, ConfigFile& tokens, const Config& conf) {
  Tokenizer text;
  fill(notice, conf, tokens, text);
  const char* subject = tokens.getValue("SUBJECT");
  Ticket ticket;
  static_cast<void>(ticket.notifyAdmins("", subject == nullptr ? notice.subject : subject, text.output(), kGeneral));
  // One administrator reached is enough: another who is not must not bring him a notice a minute.
  if (!ticket.isLost) keepStamp(notice.stamp);
}

}  // namespace zvtaskq
