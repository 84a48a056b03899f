#include "mail/block_lists.h"

#include <cstdlib>
#include <ctime>
#include <iterator>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "mail/email.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

struct BlockList {
  const char* path;
  const char* kind;
};
constexpr BlockList kLists[] = {{"/var/spool/exim/blocked_authenticated_users", "account"},
                                {"/var/spool/exim/blocked_script_paths", "script path"}};

constexpr int kByAge = 2;

bool isOlder(long long since, long long now, unsigned long long minutes) {
  if (since < 1 || since >= now) return false;
  const auto age = static_cast<unsigned long long>(now - since);
  // Written so that no number of minutes overflows.
  return age / 60 > minutes || (age / 60 == minutes && age % 60 > 0);
}

}  // namespace

long long liftOldBlocks(ConfigFile& list, const char* kind, unsigned long long minutes) {
  const long long now = std::time(nullptr);
  const long long before = list.size();
  for (long long i = 0; i < before; ++i) {
    const char* since = list.getValueAt(i);
    if (since == nullptr || !isOlder(std::strtoll(since, nullptr, 10), now, minutes)) continue;
    systemLog("BlockCracking: %s '%s' has been removed from the block list due to age.", kind, list.getNameAt(i));
    list.deleteParamAt(i);
  }
  list.shift_down_and_count();
  return before - list.size();
}

void Email::check_block_cracking_auto_unblock(const Config* conf, int blockType) {
  if (isDemo()) return;
  if (conf->block_cracking_unblock < kByAge) {
    debug(100, "Email::check_block_cracking_auto_unblock: auto unblock is not set. Shouldn't be here.");
    return;
  }
  if (blockType < 0 || blockType >= static_cast<int>(std::size(kLists))) {
    errorLog("Email::check_block_cracking_auto_unblock: Unknown block type: %d", blockType);
    return;
  }
  const BlockList& which = kLists[blockType];
  MailRecord list(which.path);
  const RecordLock lock(list);
  if (!list.read()) {
    debug(3000, "Email::check_block_cracking_auto_unblock: Unable to read %s: %s", which.path, list.result.orEmpty());
    return;
  }
  if (liftOldBlocks(list, which.kind, conf->block_cracking_unblock_minutes) == 0 || list.writeFile()) return;
  errorLogAndDebug(100, "Email::check_block_cracking_auto_unblock: unable to write %s: %s", which.path,
                   list.result.orEmpty());
  errorLogAndDebug(100,
                   "Email::check_block_cracking_auto_unblock: this means the the %ss removed are not actually removed.",
                   which.kind);
}

}  // namespace zvtaskq
