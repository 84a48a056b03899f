#include "services/ftp/host_files.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>

#include "account/model/account_holder.h"
#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "account/model/ftp_files.h"
#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/template/tokenizer.h"
#include "services/ftp/host_tokens.h"
#include "services/ftp/password_files.h"
#include "services/ftp/proftpd_check.h"
#include "services/rewrite/ask_server.h"
#include "services/rewrite/rewrite.h"

namespace zvtaskq {

namespace {

constexpr const char* kTemplate = "ftp_host.txt";
constexpr const char* kFile = "proftpd.conf";
constexpr std::size_t kLongestTemplate = 1UL << 20;
constexpr mode_t kMode = 0640;
constexpr mode_t kListMode = 0644;
constexpr const char* kHead =
    "# The FTP hosts of the panel's accounts, for ProFTPD to include. Written by the panel: changes are lost.\n";
constexpr std::string_view kPeople = "1000-4294967294";
/// Folders below, none of them "..".
constexpr std::string_view kBelow = "(/\\.?[^/.][^/]*)";

/// A path as part of ProFTPD's pattern. Empty when it cannot be one.
std::string patternOf(std::string_view path) {
  std::string pattern;
  for (const char c : path) {
    const bool isPlain = std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("/_-", c) != nullptr;
    if (!isPlain && c != '.') return "";
    pattern.append(isPlain ? "" : "\\") += c;
  }
  return pattern;
}

class HostTemplate {
 public:
  int read(Text& result) {
    path_ = templatePath(*sys_conf, kTemplate);
    const AsRoot root;
    const Descriptor file = openRegularFile(path_.c_str());
    if (file && sys::readAll(file.get(), text_, kLongestTemplate)) return 1;
    const std::string why = std::strerror(errno);
    return fail(result, "Unable to read ", path_, ": ", why);
  }

  int fill(const std::map<HostToken, std::string>& values, std::string& text, Text& result) const {
    ConfigFile tokens(nullptr);
    for (const auto& [token, value] : values) {
      tokens.setParam(kHostTokens[static_cast<std::size_t>(token)].name, value.c_str());
    }
    Tokenizer tokenizer;
    tokenizer.reduceNewlines = true;
    if (!tokenizer.runTokenizer(text_.c_str(), tokens, 0)) return fail(result, path_, ": ", tokenizer.result);
    if (tokenizer.size() > 0) return fail(result, path_, ": there is no token ", tokenizer.getElementAt(0));
    text.append(tokenizer.output(), tokenizer.length());
    if (!text.ends_with('\n')) text += '\n';
    return 1;
  }

 private:
  std::string path_;
  std::string text_;
};

/// The domains of an account by their addresses, as far as they are his alone, the main domain before others.
using DomainsOf = std::map<std::string, std::vector<std::string>>;

class HostRewrite {
 public:
  HostRewrite(Rewrite& rewrite, Text& result) : rewrite_(rewrite), result_(result) {}

  int run() {
    if (!template_.read(result_) || !holders_.read(result_)) return 0;
    std::vector<Address> addresses;
    if (!readAddresses(addresses)) return fail(result_, "the addresses cannot be read");
    for (Address& address : addresses) addresses_.emplace(address.text, std::move(address));
    for (const FtpHolder& holder : holders_.all()) {
      if (!take(holder)) return 0;
      atSafePoint();
    }
    return 1;
  }

 private:
  int take(const FtpHolder& holder) {
    DomainsOf domains;
    if (!gather(holder, domains)) {
      rewrite_.keepAccount(holder.account);
      return 1;
    }
    std::string text;
    for (const auto& [address, names] : domains) {
      if (!addHosts(holder, address, names, text)) return 0;
    }
    if (text.empty()) return 1;
    const Ids owner{kRootIds.user, idsOf(kPanelUser).group};
    rewrite_.offer({{holder.account, ""},
                    accountFile(holder.account.c_str(), kFile),
                    std::move(text),
                    owner,
                    kMode,
                    "Include |PLACE|\n"});
    return 1;
  }

  /// False when what the account has cannot be read, which the error log says.
  bool gather(const FtpHolder& holder, DomainsOf& domains) {
    ConfigFile account(nullptr);
    AccountHolder own;
    Text why;
    if (!readAccount(holder.account.c_str(), account)) {
      errorLog("%s: its record cannot be read: %s", holder.account.c_str(), account.result.orEmpty());
      return false;
    }
    if (!findHolder(holder.account.c_str(), own, why)) {
      errorLog("%s: its domains cannot be read: %s", holder.account.c_str(), why.orEmpty());
      return false;
    }
    const std::string first = account.getOrEmpty("domain");
    for (const std::string& domain : own.domains) {
      ConfigFile record(nullptr);
      if (!readDomain(holder.account.c_str(), domain.c_str(), record)) {
        errorLog("%s %s: %s", holder.account.c_str(), domain.c_str(), record.result.orEmpty());
        return false;
      }
      const char* ip = *record.getOrEmpty("ip") == '\0' ? account.getOrEmpty("ip") : record.getOrEmpty("ip");
      for (const std::string& address : addressesOf(holder, ip)) {
        std::vector<std::string>& names = domains[address];
        names.insert(domain == first ? names.begin() : names.end(), domain);
      }
    }
    return true;
  }

  /// That address and those linked to it, when it is an account's own and no other account has shown it before.
  std::vector<std::string> addressesOf(const FtpHolder& holder, const std::string& ip) {
    const auto found = addresses_.find(ip);
    if (found == addresses_.end() || found->second.status != kOwnedStatus) return {};
    std::vector<std::string> all = {ip};
    all.insert(all.end(), found->second.linked.begin(), found->second.linked.end());
    std::erase_if(all, [&](const std::string& address) {
      const std::string& owner = owners_.try_emplace(address, holder.account).first->second;
      if (owner == holder.account) return false;
      rewrite_.refuse({holder.account, ""}, joined("address ", address), joined("account ", owner, " has it"));
      return true;
    });
    return all;
  }

  int addHosts(const FtpHolder& holder, const std::string& address, const std::vector<std::string>& domains,
               std::string& text) {
    const std::size_t before = text.size();
    std::vector<FtpFile> files;
    if (sys_conf->unified_ftp_password_file == 0 && !domainFtpFiles(holder.account, files, result_)) return 0;
    for (const std::string& domain : domains) {
      for (const FtpFile& file : files) {
        if (file.place.domain == domain && !addHost(holder, address, domain, file.path, text)) return 0;
      }
    }
    return text.size() > before || addHost(holder, address, domains.front(), "", text) ? 1 : 0;
  }

  int addHost(const FtpHolder& holder, const std::string& address, const std::string& domain, const std::string& file,
              std::string& text) {
    const bool isOwn = !file.empty();
    const std::string home = isOwn ? holder.home : PathParts(holder.home).folder;
    const std::string pattern = patternOf(home);
    const std::string path(isOwn ? std::string_view(file) : sys_conf->ftppasswd.view());
    if (pattern.empty() || patternOf(path).empty()) {
      rewrite_.refuse({holder.account, ""}, "home", joined("'", pattern.empty() ? home : path, "' is no plain path"));
      return 1;
    }
    const std::string id = std::to_string(holder.ids.user);
    return template_.fill(
        {{HostToken::address, address},
         {HostToken::domain, domain},
         {HostToken::account, holder.account},
         {HostToken::passwords, path},
         {HostToken::login, isOwn ? joined("%U", std::string_view(&sys_conf->ftpsep, 1), domain) : "%U"},
         {HostToken::ids, isOwn ? joined(id, "-", id) : std::string(kPeople)},
         {HostToken::homes, joined("^", pattern, kBelow, isOwn ? "*" : "+", "/?$")}},
        text, result_);
  }

  Rewrite& rewrite_;
  Text& result_;
  HostTemplate template_;
  FtpHolders holders_;
  std::map<std::string, Address> addresses_;
  std::map<std::string, std::string> owners_;
};

RewritePlan hostPlan(const std::string& list) {
  return {.name = "ftp_hosts",
          .words = "FTP hosts",
          .check =
              [list](const Trial& trial, std::string& words) {
                return checkProftpd({{trial.list, list}}, words);
              },
          .list = {list, kRootIds, kListMode, kHead},
          .isWhole = true,
          .followUp = {"proftpd", "reload"}};
}

}  // namespace

int rewriteFtpHosts(Text& result) {
  const std::string list(sys_conf->ftpvhosts.view());
  if (list.empty()) return 1;
  {
    const AsRoot root;
    if (!makeIfMissing(list, kHead, result)) return 0;
  }
  Rewrite rewrite(hostPlan(list));
  if (!rewrite.begin()) return fail(result, rewrite.result);
  if (!HostRewrite(rewrite, result).run()) return 0;
  return rewrite.finish() ? 1 : fail(result, rewrite.result);
}

}  // namespace zvtaskq
