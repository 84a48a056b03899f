#include "account/suspension/domain_suspension.h"

#include "account/model/account_record.h"
#include "account/model/account_work.h"
#include "account/suspension/account_marks.h"
#include "account/suspension/reasons.h"
#include "account/suspension/suspension.h"
#include "core/text/names.h"
#include "mail/server_tables.h"

namespace zvtaskq {

namespace {

/// A domain of an account that is worked on.
struct DomainWork {
  DomainWork(const char* account, const char* name) : domain(name), owner(account), notes("") {}

  int open(Text& result) {
    if (!owner.open(result)) return 0;
    PanelRecord record("");
    if (!readDomain(owner.account, domain, record)) return fail(result, record.result);
    isSuspended = record.isValue("suspended", "yes") != 0;
    reasons = text_detail::part(record.getValue("suspended_reason"));
    notes = SuspensionNotes(domainSuspensionFile(owner.account, domain));
    return notes.read(result);
  }
  /// Whether the marks are those of the account as well.
  bool staysMarked() const { return owner.isSuspended() || (owner.notes.exists && !owner.notes.isOver); }

  int noteBefore(Text& result) {
    if (notes.exists && !notes.isOver) return 1;
    const bool isOthersWork = isSuspended && !notes.exists;
    notes = SuspensionNotes(notes.file);
    if (!isOthersWork) {
      const std::string ending = joined("@", domain);
      for (const std::string& name : owner.notes.blocked) {
        if (name.ends_with(ending)) notes.blocked.insert(name);
      }
      if (!staysMarked() && !noteMailboxMarks(domain, notes, result)) return 0;
    }
    return notes.write(result);
  }

  int giveBack(Text& result) {
    if (notes.isOver) return 1;
    return sayMailActive(domain, result) && (staysMarked() || freeMailboxes(domain, notes, result)) ? 1 : 0;
  }

  int write(const char* suspended, const std::string& reason, Text& result) const {
    return changeRecord(
        domainFile(owner.account, domain, "conf"),
        [&](ConfigFile& record) {
          record.setParam("suspended", suspended);
          if (reason.empty()) {
            record.deleteParam("suspended_reason");
          } else {
            record.setParam("suspended_reason", reason.c_str());
          }
        },
        result);
  }

  const char* domain;
  AccountWork owner;
  bool isSuspended = false;
  std::string reasons;
  SuspensionNotes notes;
};

}  // namespace

std::string domainSuspensionFile(const char* account, const char* domain) {
  return domainFile(account, domain, "suspended");
}

bool isDomainSuspended(const char* account, const char* domain) {
  PanelRecord record("");
  return readDomain(account, domain, record) && record.isValue("suspended", "yes");
}

int noteDomain(const char* account, const char* domain, SuspensionNotes& notes, Text& result) {
  SuspensionNotes own(domainSuspensionFile(account, domain));
  if (!own.read(result)) return 0;
  if (!isDomainSuspended(account, domain) && (!own.exists || own.isOver)) {
    return noteMailboxMarks(domain, notes, result);
  }
  notes.blocked.insert(own.blocked.begin(), own.blocked.end());
  return 1;
}

int suspendDomain(const char* account, const char* domain, const char* reason, Text& result) {
  DomainWork work(account, domain);
  if (!work.open(result)) return 0;
  const bool isNew = !work.isSuspended || work.notes.isOver;
  if (!work.noteBefore(result)) return 0;
  const std::string reasons = wordsOfBoth(work.reasons, text_detail::part(reason));
  if (markMailboxes(domain, result) && sayMailSuspended(domain, result) && queueWebRewrite(account, result) &&
      work.write("yes", reasons, result)) {
    return 1;
  }
  if (isNew && work.giveBack(result)) static_cast<void>(work.notes.remove(result));
  return 0;
}

int activateDomain(const char* account, const char* domain, const char* reason, Text& result) {
  DomainWork work(account, domain);
  if (!work.open(result)) return 0;
  if (!work.isSuspended && !work.notes.exists) return 1;
  const std::string_view taken = text_detail::part(reason);
  const std::string left = taken.empty() ? "" : wordsWithout(work.reasons, taken);
  if (!left.empty()) return left == work.reasons || work.write("yes", left, result) ? 1 : 0;
  if (!work.giveBack(result)) return 0;
  work.notes.isOver = true;
  return work.notes.write(result) && work.write("no", "", result) && work.notes.remove(result) &&
         queueWebRewrite(account, result);
}

}  // namespace zvtaskq
