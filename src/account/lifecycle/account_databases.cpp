#include "account/lifecycle/account_databases.h"

namespace zvtaskq {

int lockServices(const char*, SuspensionNotes&, Text&) {
  return 1;
}

int unlockServices(const char*, SuspensionNotes&, Text&) {
  return 1;
}

int dropDatabasesOf(const char*, Text&) {
  return 1;
}

int hasNoDatabases(const char*, Text&) {
  return 1;
}

}  // namespace zvtaskq
