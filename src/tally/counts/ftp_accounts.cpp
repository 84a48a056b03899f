#include "tally/counts/ftp_accounts.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include "account/model/system_accounts.h"
#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

std::string_view nextField(std::string_view& line) {
  const std::string_view field = line.substr(0, line.find(':'));
  line.remove_prefix(field.size() == line.size() ? line.size() : field.size() + 1);
  return field;
}

}  // namespace

FtpAccounts::FtpAccounts(const char* passwordFile) {
  if (passwordFile == nullptr || *passwordFile == '\0') return;
  const AsRoot root;
  const Descriptor file = openRegularFile(passwordFile);
  if (!file && errno == ENOENT) return;
  if (file) {
    LineReader reader(file.get(), LongLines::chop);
    for (std::string_view line; reader.next(line);) take(line);
    if (!reader.failed()) return;
  }
  errorLog("Unable to read %s: %s", passwordFile, std::strerror(errno));
  isWhole_ = false;
}

void FtpAccounts::take(std::string_view line) {
  const std::string_view name = nextField(line), hash = nextField(line), id = nextField(line);
  uid_t user = 0;
  const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), user);
  const bool isEntry = !name.empty() && name.front() != '#' && !hash.empty();
  if (!isEntry || error != std::errc() || end != id.data() + id.size()) return;
  if (!systemAccounts().hasUser(user)) {
    const std::size_t at = name.rfind('@');
    if (at != std::string_view::npos) ++byDomain_[std::string(name.substr(at + 1))];
  } else if (systemAccounts().idsOf(std::string(name).c_str()).user != user) {
    ++byUser_[user];
  }
}

long long FtpAccounts::of(const char* account, const std::vector<std::string>& domains) const {
  const SystemAccount* owner = systemAccounts().find(account);
  const auto own = owner == nullptr ? byUser_.end() : byUser_.find(owner->ids.user);
  long long count = own == byUser_.end() ? 0 : own->second;
  for (const std::string& domain : domains) {
    const auto found = byDomain_.find(domain);
    if (found != byDomain_.end()) count += found->second;
  }
  return count;
}

}  // namespace zvtaskq
