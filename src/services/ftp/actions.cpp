#include "services/ftp/actions.h"

#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "services/ftp/host_files.h"
#include "services/ftp/one_file.h"
#include "services/ftp/password_files.h"
#include "services/ftp/pure_database.h"
#include "services/rewrite/left_out.h"
#include "services/rewrite/rewrite.h"

namespace zvtaskq {

namespace {

/// What a server wants of the accounts.
struct ServerPart {
  const char* name;
  const char* words;
  int (*rewrite)(Text& result);
};
constexpr ServerPart kPure = {"pureftp_db", "FTP password database", rewritePureDatabase};
constexpr ServerPart kPro = {"ftp_hosts", "FTP hosts",
                             [](Text& result) { return rewriteFtpHosts(result) && tellRefusedLines(result) ? 1 : 0; }};
constexpr const char* kSaidMark = "ftp_failure";

int rewriteFtp(const Task&) {
  if (isDemo()) return 1;
  Text result;
  const ServerPart& part = sys_conf->pureftp != 0 ? kPure : kPro;
  if (part.rewrite(result)) return 1;
  // It is tried again each minute: what was suspended or deleted must not stay let in until the next change.
  if (isDueAgain(kSaidMark, fingerprintOf(result.view()))) {
    errorLog("Unable to rewrite the %s: %s", part.words, result.orEmpty());
  }
  tellUnchanged(part.name, part.words, result.view());
  queueTask("rewrite", "pureftp_db");
  return 0;
}

int convertToUnifiedFile(const Task& task) {
  const bool simulates = task.isOn("simulate");
  const char* what =
      simulates ? "Simulating conversion to unified ftp password file" : "Converting to unified ftp password file";
  systemLog("%s", what);
  debug(10, "%s.  Only accounts with owned IPs are used.", what);
  if (isDemo()) return 1;
  Text result;
  if (convertToOneFtpFile(simulates, result)) return 1;
  errorLog("Unable to convert to the unified ftp password file: %s", result.orEmpty());
  return 0;
}

constexpr ActionRow kRows[] = {
    {"convert", "value", "unifiedftp", convertToUnifiedFile, "converts to one FTP password file"},
    {"rewrite", "value", "pureftp_db", rewriteFtp, "rewrites the FTP password database, or ProFTPD's hosts"},
};

}  // namespace

ActionRows ftpActions() {
  return kRows;
}

}  // namespace zvtaskq
