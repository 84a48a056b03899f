#include "services/ftp/actions.h"

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "services/ftp/host_files.h"
#include "services/ftp/one_file.h"
#include "services/ftp/password_files.h"
#include "services/ftp/pure_database.h"

namespace zvtaskq {

namespace {

/// What each server wants of the accounts: Pure-FTPd its database, ProFTPD its hosts.
int rewriteFtp(const Task&) {
  if (isDemo()) return 1;
  Text result;
  const bool isPure = sys_conf->pureftp != 0;
  if (isPure ? rewritePureDatabase(result) : rewriteFtpHosts(result) && tellRefusedLines(result)) return 1;
  errorLog("Unable to rewrite the FTP %s: %s", isPure ? "password database" : "hosts", result.orEmpty());
  // What was suspended or deleted must not stay let in until the next change.
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
