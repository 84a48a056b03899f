// Telling people. A build that holds the messages provides it.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;
class ListFile;

struct NotifyOperations {
  /// A notice to all administrators. Subject and message may be null, and then speak of the service being down;
  /// `isGeneral` 0 marks such a notice, of which there is one an hour.
  Operation<const char* /*service*/, const char* /*subject*/, const char* /*message*/, int /*isGeneral*/> notifyAdmins{
      "notices to administrators"};
  /// The same by e-mail alone.
  Operation<const char* /*service*/, const char* /*subject*/, const char* /*message*/, int /*isGeneral*/> mailAdmins{
      "e-mails to administrators"};
  /// A message to the users of the list.
  Operation<const char* /*subject*/, const char* /*message*/, ListFile* /*users*/> messageUsers{"messages to users"};
  /// A message made of the record (subject, message, user, priority) to the users of the list.
  Operation<ConfigFile* /*message*/, ListFile* /*recipients*/> sendSystemMessage{"system messages"};
};

/// The operations this build holds.
NotifyOperations& notifyOperations();

}  // namespace zvtaskq
