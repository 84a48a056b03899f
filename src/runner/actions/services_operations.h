// What the writers of service configuration do for queue lines. A build that holds the work provides it.
//
// Each returns 1 on success. Where a `result` is given, a failure appends its reason there, in lines for people.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;
class ListFile;

struct ServiceOperations {
  /// The web server's main configuration includes the named file, or no longer does.
  Operation<const char* /*file*/> confirmWebInclude{"the web server's include"};
  Operation<const char* /*file*/> confirmWebRemoval{"the web server's removal of an include"};
  /// The web servers' configuration of one user, or of all for null.
  Operation<const char* /*user*/> rewriteWebServer{"the web-server configuration"};
  Operation<> rewriteFtpDatabase{"the FTP password database"};
  Operation<bool /*simulate*/> convertUnifiedFtp{"the conversion to one FTP password file"};
  /// Signs the zones of the domains again; of all that have keys when the list is empty.
  Operation<ListFile* /*domains*/> signZones{"the signing of DNS zones"};
  /// Key files of one domain; then its DNS record.
  Operation<const char* /*domain*/, Text* /*result*/> createDkimKeys{"DKIM key files"};
  Operation<const char* /*domain*/, Text* /*result*/> addDkimRecord{"DKIM records in DNS"};
  /// All zones, or those of the domains when the list is not empty.
  Operation<ListFile* /*domains*/, bool /*updateSerial*/, Text* /*result*/> rewriteZones{"the DNS zones"};
  Operation<ListFile* /*addresses*/, Text* /*result*/> writeIpsConfiguration{"the web server's ips.conf"};
  /// Hands a zone's text, or a mail account's data, to the peers of the DNS cluster.
  Operation<const char* /*domain*/, const char* /*zone*/> sendZone{"the DNS cluster"};
  Operation<ConfigFile* /*request*/, const char* /*user*/, const char* /*host*/> sendMailAccount{
      "the mail data of the cluster"};
  Operation<> checkCertificates{"the check of certificate expiries"};
  Operation<> rebuildSafeModeCache{"the PHP safe-mode cache"};
  Operation<> convertSuspendedDatabases{"the conversion of suspended databases"};
  /// 1 when there was something to update and it was; 0 with the reason, 2 when the version in use is the newest.
  Operation<Text* /*result*/> updateProgram{"the update of the panel software"};
  /// The update's own part in a full tally.
  Operation<> tallyHook{"the update component's hook"};
  /// The system self-check: 1 when all is well, 0 with its report.
  Operation<Text* /*report*/> checkSystem{"the system self-check"};
};

/// The operations this build holds.
ServiceOperations& serviceOperations();

}  // namespace zvtaskq
