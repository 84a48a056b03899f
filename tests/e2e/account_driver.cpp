// Carries out one work on an account with the settings of the installed panel, under the identity that a run has
// between its steps: account_driver OPERATION [ARGUMENT...]. Prints what the operation hands back in words; the exit
// status is 0 for its 1, 1 for its 0, 2 for a wrong call.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "account/lifecycle/creation.h"
#include "account/lifecycle/deletion.h"
#include "account/suspension/suspension.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/environment.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

using namespace zvtaskq;

namespace {

constexpr const char* kSettings = "/usr/local/zorvane/conf/zorvane.conf";

struct Row {
  const char* operation;
  int arguments;
  int (*work)(char** words, Text& result);
};

/// The account that a record in URL-encoded form describes, with a password hash.
int create(char** words, Text& result) {
  ConfigFile record(nullptr);
  record.fillFromPost(words[0]);
  return createAccount(record, words[1], result);
}

constexpr Row kRows[] = {
    {"create", 2, create},
    {"delete", 1, [](char** words, Text& result) { return deleteAccount(words[0], false, result); }},
    {"suspend", 2,
     [](char** words, Text& result) { return suspendAccount(words[0], words[1], SuspendedBy::person, result); }},
    {"suspendByTally", 2,
     [](char** words, Text& result) { return suspendAccount(words[0], words[1], SuspendedBy::tally, result); }},
    {"activate", 1, [](char** words, Text& result) { return activateAccount(words[0], SuspendedBy::person, result); }},
    {"activateByTally", 1,
     [](char** words, Text& result) { return activateAccount(words[0], SuspendedBy::tally, result); }},
    {"dropReasons", 2, [](char** words, Text& result) { return dropSuspensionReasons(words[0], words[1], result); }},
    {"suspendDomain", 3,
     [](char** words, Text& result) { return suspendDomain(words[0], words[1], words[2], result); }},
    {"activateDomain", 3,
     [](char** words, Text& result) { return activateDomain(words[0], words[1], words[2], result); }},
};

}  // namespace

int main(int count, char** words) {
  Config conf(kSettings);
  if (conf.error) {
    std::puts(conf.result.orEmpty());
    return 2;
  }
  useConfiguration(&conf);
  conf.setErrLog(joined(conf.logdir, "/errortaskq.log").c_str());
  const Log log;
  useCleanEnvironment();
  ::umask(077);
  if (!setRootPriv() || !dropSupplementaryGroups()) return 2;
  for (const Row& row : kRows) {
    if (count < 2 || std::strcmp(row.operation, words[1]) != 0 || count != row.arguments + 2) continue;
    setNoPriv();
    Text result;
    const int done = row.work(words + 2, result);
    std::fputs(result.orEmpty(), stdout);
    return done == 1 ? 0 : 1;
  }
  std::puts("usage: account_driver OPERATION [ARGUMENT...]");
  return 2;
}
