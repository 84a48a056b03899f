#include "runner/actions/not_built.h"

#include <span>

#include "core/panel/task.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

struct Missing {
  const char* action;
  const char* key;
  const char* word;
  const char* words;
};

constexpr Missing kMissing[] = {
    {"cache", "type", "popquota", "the cache of mailbox disk usage"},
    {"backup", "type", "user", "a user's backup"},
    {"backup", "type", "reseller", "a reseller's backup"},
    {"backup", "type", "admin", "an administrator's backup"},
    {"backup", "type", "system", "the system backup"},
    {"backup", "type", "sitebackup", "a site backup"},
    {"convert", "value", "cronbackups", "the conversion of backup schedules"},
    {"convert", "value", "todovecot", "the conversion of mailboxes"},
    {"convert", "value", "imap_inbox_prefix", "the inbox-prefix folders"},
    {"delete", "value", "mbox", "the deletion of old mbox files"},
    {"restore", "type", "reseller", "a reseller's restore"},
    {"restore", "type", "admin", "an administrator's restore"},
};

constexpr Missing kMissingForMail[] = {
    {"limit", nullptr, nullptr, "the sending limit of an account"},
    {"userlimit", nullptr, nullptr, "the sending limit of a mailbox"},
    {"block_cracking", nullptr, nullptr, "the notice about blocked senders"},
};

const char* wordsIn(std::span<const Missing> rows, const Task& task) {
  for (const Missing& row : rows) {
    if (task.is("action", row.action) && (row.key == nullptr || task.is(row.key, row.word))) return row.words;
  }
  return nullptr;
}

}  // namespace

const char* missingFor(const Task& task) {
  return wordsIn(kMissing, task);
}

const char* missingForMail(const Task& task) {
  return wordsIn(kMissingForMail, task);
}

void reportMissing(const char* what, const char* words) {
  if (words != nullptr) errorLog("%s: not available in this build: %s", printableLine(what).c_str(), words);
}

}  // namespace zvtaskq
