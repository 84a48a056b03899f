#include "mail/email.h"

#include <cerrno>
#include <cstring>

#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/record/record_lock.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr const char* kTexts[] = {kVacationOn, kVacationOff};

Descriptor openReplies(const char* domain) {
  return openMailPath(joined(domain, "/reply"), O_RDONLY | O_DIRECTORY);
}

bool stands(const Descriptor& folder, const std::string& name) {
  struct stat what {};
  return sys::lstatAt(folder.get(), name.c_str(), what) == 0;
}

}  // namespace

int Email::tellFailure(const char* what, const std::string& file, const char* domain) const {
  errorLog("Unable to %s %s of %s (account %s): %s", what, file.c_str(), domain, owner_.c_str(), std::strerror(errno));
  return 0;
}

void Email::moveText(const char* mailbox, const char* domain, const char* from, const char* to) const {
  if (isDemo() || !isMailName(mailbox) || !isMailName(domain)) return;
  const AsUser mail(kMailUser);
  const FailScope scope("vacation");
  const Descriptor folder = openReplies(domain);
  if (!folder) {
    if (errno != ENOENT) tellFailure("open", "reply", domain);
    return;
  }
  const std::string source = joined(mailbox, from), target = joined(mailbox, to);
  if (!stands(folder, source)) return;
  // A rename alone would do nothing when both are the same file under two names.
  if (stands(folder, target) && sys::unlinkat(folder.get(), target.c_str(), 0) != 0) {
    tellFailure("delete", target, domain);
  }
  if (sys::renameat(folder.get(), source.c_str(), folder.get(), target.c_str()) != 0) {
    tellFailure("rename", source, domain);
  }
}

int Email::activateVacation(const char* mailbox, const char* domain) const {
  moveText(mailbox, domain, kVacationOff, kVacationOn);
  return 1;
}

int Email::disableVacation(const char* mailbox, const char* domain) const {
  moveText(mailbox, domain, kVacationOn, kVacationOff);
  return 1;
}

int Email::deleteTexts(const char* mailbox, const char* domain) const {
  if (!isMailName(mailbox)) return 1;
  const AsUser mail(kMailUser);
  const FailScope scope("vacation");
  const Descriptor folder = openReplies(domain);
  if (!folder) return errno == ENOENT ? 1 : tellFailure("open", "reply", domain);
  int deleted = 1;
  for (const char* suffix : kTexts) {
    const std::string name = joined(mailbox, suffix);
    if (sys::unlinkat(folder.get(), name.c_str(), 0) == 0 || errno == ENOENT) continue;
    deleted = tellFailure("delete", name, domain);
  }
  return deleted;
}

int Email::removeVacations(const ListFile& mailboxes, const char* domain, const IsOver& isOver) const {
  if (isDemo()) return 1;
  if (!isMailName(domain)) return 0;
  MailRecord vacations(vacationFile(domain).c_str());
  // Held over all of it: who extends a vacation under the lock either comes first, and is seen here, or finds it gone.
  const RecordLock lock(vacations);
  if (!vacations.read()) {
    errorLog("Can't read %s: %s", vacations.getFilename(), vacations.result.orEmpty());
    return 0;
  }
  int removed = 1;
  for (int i = 0; i < mailboxes.size(); ++i) {
    const char* mailbox = mailboxes.getElementAt(i);
    const char* window = vacations.getValue(mailbox);
    if (isOver && (window == nullptr || !isOver(mailbox, window))) continue;
    // The entry goes last: what is left of an interrupted removal is then found again.
    if (deleteTexts(mailbox, domain)) {
      vacations.deleteParam(mailbox);
    } else {
      removed = 0;
    }
  }
  if (vacations.writeFile()) return removed;
  errorLog("Unable to write %s: %s", vacations.getFilename(), vacations.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
