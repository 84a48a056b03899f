#include "tally/checks/hostname.h"

#include "account/model/server_address.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/system_info.h"
#include "core/sys/privileges.h"
#include "notify/ticket.h"

namespace zvtaskq {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kGeneral = 1;

std::string nameFinding(const HostNameFacts& facts) {
  if (facts.hostname.empty()) {
    return joined("Cannot find your hostname using the command '", kHostNameCommand,
                  "'. Please check this command to ensure it works properly.\n",
                  "If you get the error:\nhostname: Name or service not known\n\n"
                  "Check your /etc/resolv.conf and try setting it to use 127.0.0.1");
  }
  if (facts.hostname == facts.servername) return "";
  return joined("Your hostname, ", facts.hostname, ", and the servername you have set in Zorvane, ", facts.servername,
                ", do not match.  It is recommended that these two values are the same.\n\nSolution:\n\n"
                "Either change the servername in Zorvane or run the 'hostname.sh' script via ssh to change your "
                "hostname\n\n");
}

std::string recordAdvice(const std::string& hostname) {
  return joined("Create an A record for your hostname (", hostname,
                ".) in your DNS control panel. Point the hostname to your server's main IP address.  Also check "
                "/etc/hosts to ensure that the server ip is correctly set.");
}

std::string addressFinding(const HostNameFacts& facts) {
  if (facts.address.empty()) {
    return joined("Unable to resolve your hostname, ", facts.hostname,
                  ".  This will cause major issues when sending email.\n\nSolution:\n\n", recordAdvice(facts.hostname));
  }
  if (facts.address != kLoopback) return "";
  const std::string own = facts.serverAddress();
  if (own.empty()) {
    return "Unable to determine the server's ip.  Please make sure that the proper ethernet device has been set in the "
           "zorvane.conf file: eg: ethernet_dev=eth0\n\n";
  }
  return joined(facts.hostname,
                ", resolves to 127.0.0.1.  Please make sure that your hostname resolves to your server ip (", own,
                ") or else your email may not work correctly.\n\nSolution:\n\n", recordAdvice(facts.hostname));
}

}  // namespace

std::string hostNameFindings(const HostNameFacts& facts) {
  return nameFinding(facts) + addressFinding(facts);
}

void checkHostname() {
  HostNameFacts facts;
  {
    const AsRoot root;
    facts.hostname = getHostName();
    facts.address = resolveIPv4(facts.hostname.c_str());
  }
  facts.servername = sys_conf->servername.orEmpty();
  facts.serverAddress = mainServerAddress;
  const std::string findings = hostNameFindings(facts);
  if (findings.empty()) return;
  Ticket().notifyAdmins(
      "", "This is e-mail notification to warn you that your hostname is setup improperly on your system.",
      findings.c_str(), kGeneral);
}

}  // namespace zvtaskq
