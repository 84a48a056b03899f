#include "account/model/ftp_files.h"

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestLook = 1UL << 20;

/// Whether such a line, as it is written below, waits already. It will be carried out after this moment, and so after
/// all that was changed before it: a tally that suspends a thousand accounts needs no thousand databases.
bool isQueued() {
  const AsRoot root;
  const Descriptor file = openRegularFile(sys_conf->taskqueue.orEmpty());
  std::string lines = "\n";
  std::string waiting;
  if (!file || !sys::readAll(file.get(), waiting, kLongestLook)) return false;
  return lines.append(waiting).find("\naction=rewrite&value=pureftp%5Fdb\n") != std::string::npos;
}

int queueRewrite(Text& result) {
  if (isQueued() || pushOnTaskQueue("rewrite", "pureftp_db")) return 1;
  std::string_view why = getSysResult();
  why = why.substr(0, why.find("<br>"));
  return fail(result, "Unable to queue action=rewrite&value=pureftp_db: ", why);
}

}  // namespace

std::string domainFtpFile(const char* account, const char* domain) {
  return domainFile(account, domain, "ftppasswd");
}

std::string wholeFtpName(std::string_view name, std::string_view account, std::string_view domain) {
  const char separator = sys_conf->ftpsep;
  const bool isWhole = domain.empty() || name == account || name.find(separator) != std::string_view::npos;
  return isWhole ? std::string(name) : joined(name, std::string_view(&separator, 1), domain);
}

int queueFtpPasswords(Text& result) {
  return sys_conf->pureftp == 0 || queueRewrite(result) ? 1 : 0;
}

int queueFtpHosts(Text& result) {
  return (sys_conf->pureftp == 0 && sys_conf->ftpvhosts.isEmpty()) || queueRewrite(result) ? 1 : 0;
}

}  // namespace zvtaskq
