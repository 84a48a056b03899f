// What the checks of the server share: a message made from a template, and how long ago the last one was.
#pragma once

#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

class Config;

/// One kind of notice to the administrators.
struct Notice {
  /// The template's file name.
  const char* templateFile;
  /// Tells the error log why the template could not be filled.
  void (*tellFillError)(const char* why);
  /// The subject when the template gives none.
  const char* subject;
  /// The pair of the administrators' settings that tells when the last one went out, in seconds since the epoch.
  const char* stamp;
};

/// The file of the administrators' settings, which "nobody" reads and writes.
std::string adminSettingsFile();

/// Seconds since the last notice of the kind. One that never went out lies as far back as the epoch, and so does one
/// stamped in the future, which the error log is told: a clock that was put back must not silence the notices until it
/// has caught up.
long long secondsSinceLast(const Notice& notice, const ConfigFile& settings);

/// Fills the template with the tokens and the footer, and hands the message over for all administrators: what could be
/// produced of it, when filling fails. Then the time is kept in the administrators' settings, unless the message
/// reached nobody; a failure of that is told in the error log. Leaves the process at nobody.
void sendNotice(const Notice& notice, ConfigFile& tokens, const Config& conf);

}  // namespace zvtaskq
