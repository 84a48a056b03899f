#include "services/ftp/ftp_entry.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "account/model/account_holder.h"
#include "account/model/account_record.h"
#include "account/model/ftp_files.h"
#include "account/model/password_marks.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kFields = 7;
/// As long as a log-in name may be in the log lines of both servers.
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestHash = 255;

bool isNumber(std::string_view text, uid_t& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

bool isPlain(std::string_view text, std::string_view marks) {
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && marks.find(c) == std::string_view::npos) return false;
  }
  return !text.empty();
}

/// The line's fields, taken apart and judged one after another.
class Judgment {
 public:
  Judgment(const FtpPlace& place, const FtpHolders& holders, FtpEntry& entry)
      : place_(place), holders_(holders), entry_(entry) {}

  bool run(std::string_view line) {
    std::size_t count = 0;
    for (std::size_t at = 0; at <= line.size() && count <= kFields; ++count) {
      const std::size_t end = std::min(line.find(':', at), line.size());
      if (count < kFields) fields_[count] = line.substr(at, end - at);
      at = end + 1;
    }
    findHolder();
    entry_.name = wholeFtpName(fields_[0], place_.account, place_.domain);
    entry_.hash = fields_[1];
    entry_.home = fields_[5];
    if (count != kFields) return refuse("form", "it is no name:hash:uid:gid::home: with these six colons");
    return judgeName() && judgeIds() && judgeHome() && judgeHash();
  }

 private:
  bool refuse(const char* field, std::string why) {
    entry_.field = field;
    entry_.why = std::move(why);
    return false;
  }

  std::string domainOf(std::string_view name) const {
    const std::size_t at = name.rfind(sys_conf->ftpsep);
    return at == std::string_view::npos ? "" : std::string(name.substr(at + 1));
  }

  /// Whose line it is, for messages too: his whose file it is, or whose user id it has, or whose domain.
  void findHolder() {
    uid_t user = 0;
    if (!place_.account.empty()) {
      holder_ = holders_.byName(place_.account);
    } else if (isNumber(fields_[2], user)) {
      holder_ = holders_.byUser(user);
    }
    entry_.account = !place_.account.empty() ? place_.account
                     : holder_ != nullptr    ? holder_->account
                                             : holders_.ownerOf(domainOf(fields_[0]));
  }

  bool judgeName() {
    const std::string& name = entry_.name;
    const char marks[] = {'.', '_', '-', '+', '@', sys_conf->ftpsep};
    const bool isWord = isPlain(name, std::string_view(marks, sizeof marks)) && name.find("..") == std::string::npos &&
                        name.front() != '.' && name.front() != '-' && name.size() <= kLongestName;
    if (!isWord || name.find('/') != std::string::npos) return refuse("name", "it is no plain name");
    const std::string domain = domainOf(name);
    if (domain.empty()) {
      const bool isOthers = name != entry_.account && holders_.byName(name) != nullptr;
      return isOthers ? refuse("name", "it is that of another account") : true;
    }
    const std::string owner = holders_.ownerOf(domain);
    if (!isValidDomain(domain.c_str()) || (!owner.empty() && owner != entry_.account)) {
      return refuse("name", joined(domain, " is no domain of his"));
    }
    return true;
  }

  bool judgeIds() {
    if (!isNumber(fields_[2], entry_.ids.user) || holder_ == nullptr || holder_->ids.user != entry_.ids.user) {
      return refuse("uid", joined("'", fields_[2], "' is the user id of no account that may have it"));
    }
    if (!isNumber(fields_[3], entry_.ids.group) || holder_->ids.group != entry_.ids.group) {
      return refuse("gid", joined("'", fields_[3], "' is not the group of account ", holder_->account));
    }
    return true;
  }

  bool judgeHome() {
    const std::string& home = entry_.home;
    const std::string& top = holder_->home;
    // "/./" is where Pure-FTPd would lock him in, and no line may hold what a template or a shell would read.
    const bool isPath = home.starts_with('/') && (home + "/").find("/../") == std::string::npos &&
                        home.find("//") == std::string::npos && (home + "/").find("/./") == std::string::npos &&
                        printable(home) == home;
    const bool isBelow = home == top || home.starts_with(top + "/");
    if (!isPath || !isBelow || top.size() < 2) {
      return refuse("home", joined("'", home, "' is no folder of ", top));
    }
    const AsRoot root;
    const Descriptor folder = openFolder(top.c_str());
    if (!folder && errno == ENOENT) return true;
    const std::string rest = home.size() > top.size() + 1 ? home.substr(top.size() + 1) : ".";
    if (folder && (openBeneath(folder.get(), rest.c_str(), O_PATH | O_DIRECTORY) || errno == ENOENT)) return true;
    const bool isLink = errno == ELOOP || errno == ENOTDIR;
    return refuse("home", joined("'", home, "': ", isLink ? "a link or a file stands there" : std::strerror(errno)));
  }

  bool judgeHash() {
    const std::string_view hash = entry_.hash;
    if (hash.empty()) return refuse("hash", "it is empty: anybody would get in");
    const std::string_view bare = isSuspendedPassword(hash) ? hash.substr(1) : hash;
    if (isLivePassword(hash) || isSuspendedPassword(hash)) {
      const bool isHash = isPlain(bare, "$./=,+-_") && bare.size() <= kLongestHash;
      if (!isHash) return refuse("hash", "it is no hash of a password");
    }
    entry_.fate = isLivePassword(hash) ? FtpFate::good : FtpFate::locked;
    return true;
  }

  const FtpPlace& place_;
  const FtpHolders& holders_;
  FtpEntry& entry_;
  const FtpHolder* holder_ = nullptr;
  std::array<std::string_view, kFields> fields_;
};

}  // namespace

// --- Accounts ----------------------------------------------------------------------------------------------------

int FtpHolders::read(Text& result) {
  ListFile names(nullptr);
  if (!listAccounts(names)) return fail(result, "the accounts cannot be listed");
  for (int i = 0; i < names.size(); ++i) {
    AccountHolder account;
    account.name = names.getElementAt(i);
    account.findSystemAccount();
    if (account.isPerson()) add({account.name, systemAccounts().find(account.name.c_str())->home, account.ids});
  }
  owners_.useLock = false;
  if (!readDomainOwners(owners_)) debug(10, "%s", owners_.result.orEmpty());
  owners_.trimValueFront();
  return 1;
}

void FtpHolders::add(FtpHolder holder) {
  byName_[holder.account] = holders_.size();
  byUser_.emplace(holder.ids.user, holders_.size());
  holders_.push_back(std::move(holder));
}

const FtpHolder* FtpHolders::byName(std::string_view account) const {
  const auto found = byName_.find(account);
  return found == byName_.end() ? nullptr : &holders_[found->second];
}

const FtpHolder* FtpHolders::byUser(uid_t user) const {
  const auto found = byUser_.find(user);
  return found == byUser_.end() ? nullptr : &holders_[found->second];
}

// --- Lines -------------------------------------------------------------------------------------------------------

std::string FtpEntry::line() const {
  return joined(name, ":", hash, ":", std::to_string(ids.user), ":", std::to_string(ids.group), "::", home, ":");
}

FtpEntry judgeFtpLine(std::string_view line, const FtpPlace& place, const FtpHolders& holders) {
  FtpEntry entry;
  if (line.find_first_not_of(" \t\r") == std::string_view::npos || line.front() == '#') return entry;
  entry.fate = FtpFate::refused;
  Judgment(place, holders, entry).run(line);
  return entry;
}

void tellRefused(const FtpEntry& entry) {
  errorLog("%s: %s of the FTP account '%s' is refused: %s",
           entry.account.empty() ? "nobody" : printable(entry.account).c_str(), entry.field,
           printable(entry.name).c_str(), printable(entry.why).c_str());
}

}  // namespace zvtaskq
