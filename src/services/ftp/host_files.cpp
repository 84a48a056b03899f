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

/// Whether an address stands in a text, not as a part of another.
bool holdsWord(std::string_view text, std::string_view address) {
  const auto isPart = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0 || c == '.' || c == ':'; };
  for (std::size_t at = text.find(address); at != std::string_view::npos; at = text.find(address, at + 1)) {
    const std::size_t end = at + address.size();
    if ((at == 0 || !isPart(text[at - 1])) && (end == text.size() || !isPart(text[end]))) return true;
  }
  return false;
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

/// The domains of an account by their addresses, as far as those are an account's own, the main domain before others.
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
      DomainsOf domains;
      if (!gather(holder, domains)) {
        rewrite_.keepAccount(holder.account);
      } else if (!domains.empty()) {
        for (const auto& [address, names] : domains) claims_[address].push_back(holder.account);
        gathered_.emplace_back(&holder, std::move(domains));
      }
      atSafePoint();
    }
    for (const auto& [holder, domains] : gathered_) {
      if (!take(*holder, domains)) return 0;
    }
    return 1;
  }

 private:
  int take(const FtpHolder& holder, const DomainsOf& domains) {
    std::string text;
    for (const auto& [address, names] : domains) {
      if (!isHis(holder.account, address)) return 1;
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

  /// Of several who claim an address, whoever is served there already has it, or else nobody gets it. Who does not is
  /// refused.
  bool isHis(const std::string& account, const std::string& address) {
    const std::vector<std::string>& claimants = claims_[address];
    if (claimants.size() == 1) return true;
    std::vector<std::string> served;
    for (const std::string& one : claimants) {
      const std::string* text = rewrite_.present(accountFile(one.c_str(), kFile));
      if (text != nullptr && holdsWord(*text, address)) served.push_back(one);
    }
    if (served.size() == 1 && served.front() == account) return true;
    const std::vector<std::string>& others = served.size() == 1 ? served : claimants;
    const std::string& other = others.front() == account ? others.back() : others.front();
    rewrite_.refuse({account, ""}, joined("address ", address), joined("account ", other, " has it"));
    return false;
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
      std::vector<std::string> addresses;
      if (!addressesOf(holder, ip, addresses)) return false;
      for (const std::string& address : addresses) {
        std::vector<std::string>& names = domains[address];
        names.insert(domain == first ? names.begin() : names.end(), domain);
      }
    }
    return true;
  }

  /// That address and those linked to it, when it is an account's own. False when its record cannot be read.
  bool addressesOf(const FtpHolder& holder, const std::string& ip, std::vector<std::string>& all) const {
    const auto found = addresses_.find(ip);
    if (found == addresses_.end()) return true;
    const Address& address = found->second;
    if (!address.hasRecord) {
      errorLog("%s: its address %s has no record that can be read", holder.account.c_str(), ip.c_str());
      return false;
    }
    if (address.status != kOwnedStatus) return true;
    all.push_back(ip);
    all.insert(all.end(), address.linked.begin(), address.linked.end());
    return true;
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
  std::vector<std::pair<const FtpHolder*, DomainsOf>> gathered_;
  /// Who has domains on an address.
  std::map<std::string, std::vector<std::string>> claims_;
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
