// Switches vacation messages on and off as their windows open and close.
#pragma once

#include "core/record/list_file.h"

namespace zvtaskq {

class Config;
class ConfigFile;
class Email;

/// What is to be done about a mailbox's vacation.
enum class VacationStep { none, activate, disable, remove };

/// The step for a message that is on or off (`active`) at a time, with a window from `start` to `end`, both of which
/// lie outside it. All are seconds since the epoch.
VacationStep vacationStep(bool active, long long now, long long start, long long end);

class VacationWatch {
 public:
  /// Does the check: of every mail domain, or (when it is one that the mail server knows) of `domain`. All work is done
  /// as the mail server's user; the process is left at nobody.
  VacationWatch(const Config* conf, const char* domain);

  /// Checks the mailboxes of one domain of the account `owner`. What cannot be done, and an entry that makes no sense,
  /// is told in the error log and left as it is.
  void checkDomain(const char* domain, const char* owner) const;
  /// Whether the text of the mailbox's message is in the active place.
  bool vacationActive(const char* domain, const char* mailbox) const;

 private:
  void checkAll(const ConfigFile& owners) const;
  VacationStep stepFor(const char* domain, const char* mailbox, const char* window, long long now) const;

  const Config* conf_;
};

}  // namespace zvtaskq
