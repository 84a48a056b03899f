#include "services/web/web_data.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "account/model/name_owner.h"
#include "account/model/server_address.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "services/rewrite/left_out.h"
#include "services/web/domain_files.h"
#include "services/web/page_folders.h"
#include "services/web/php_pools.h"
#include "services/web/web_rules.h"

namespace zvtaskq {

namespace {

constexpr const char* kAlias = "www.";

struct Piece {
  const char* ending;
  std::string (*why)(std::string_view text);
};
/// In the order of `WebServer`.
constexpr Piece kPieces[] = {{".cust_httpd", whyNoApachePiece}, {".cust_nginx", whyNoNginxPiece}};

}  // namespace

/// The sites of one account, one domain after another.
class AccountSites {
 public:
  AccountSites(WebData& shared, const ConfigFile& record, WebAccount& account)
      : shared_(shared), record_(record), account_(account), files_(account.name) {}

  /// As the panel's user.
  Gathered read() {
    std::vector<std::string> domains;
    Text result;
    if (!files_ || !readDomains(account_.name.c_str(), domains, result)) {
      errorLog("%s: its domains cannot be read: %s", account_.name.c_str(), result.orEmpty());
      return Gathered::unreadable;
    }
    for (const std::string& domain : domains) takeDomain(domain);
    if (!isReadable_) return Gathered::unreadable;
    return account_.sites.empty() ? Gathered::none : Gathered::ready;
  }

  /// Of all sites together, as root: an identity costs more than a look at a folder.
  void findFolders() {
    const AsRoot root;
    const PageFolders folders(account_.home);
    for (const OpenDomain& one : open_) findFolders(folders, one);
  }

 private:
  /// A domain that is not suspended; its sites are those of its subdomains from `first` on, then its own.
  struct OpenDomain {
    std::string domain;
    std::vector<std::string> subdomains;
    std::size_t first = 0;
  };

  void refuse(const std::string& field, const std::string& why) const {
    errorLog("%s %s: %s is refused: %s", account_.name.c_str(), domain_.c_str(), printable(field).c_str(), why.c_str());
  }

  void unreadable(const char* words) {
    errorLog("%s %s: %s", account_.name.c_str(), domain_.c_str(), words);
    isReadable_ = false;
  }

  /// Takes a name for a site of this account. What is another's, or was taken before, is none.
  bool takeName(const std::string& name, const char* what) {
    if (!isValidDomain(name.c_str()) || !shared_.mayHave(account_.name, name)) {
      refuse(joined(what, " '", name, "'"), "it is no host name, or belongs to another account");
      return false;
    }
    return names_.insert(name).second;
  }

  void takeDomain(const std::string& domain) {
    domain_ = domain;
    if (!files_.has(domain + ".conf"))
      return errorLog("%s %s: it has no record", account_.name.c_str(), domain.c_str());
    ConfigFile record(nullptr);
    if (!readDomain(account_.name.c_str(), domain.c_str(), record)) return unreadable(record.result.orEmpty());
    if (!takeName(domain, "domain")) return;
    WebSite site;
    site.host = domain;
    site.names = {domain};
    site.isSuspended = account_.isSuspended || record.isValue("suspended", "yes") != 0;
    site.forcesHttps = record.isValue("force_https", "yes") != 0;
    if (!findAddresses(record, site)) return;
    findCertificate(site);
    std::vector<WebSite> redirects;
    std::vector<std::string> subdomains;
    if (!readNames(site, subdomains, redirects)) return;
    if (!site.isSuspended) {
      readOwn(site);
      site.php = phpOf(record);
      open_.push_back({domain, subdomains, account_.sites.size()});
    }
    addSubdomains(site, subdomains);
    account_.sites.push_back(std::move(site));
    for (WebSite& redirect : redirects) account_.sites.push_back(std::move(redirect));
  }

  bool findAddresses(const ConfigFile& record, WebSite& site) {
    std::string ip = record.getOrEmpty("ip");
    if (ip.empty()) ip = record_.getOrEmpty("ip");
    if (!shared_.ours_.contains(ip)) {
      refuse(joined("ip '", ip, "'"), "it is no address of this server");
      return false;
    }
    site.addresses = shared_.addressesOf(ip);
    mayHaveOwn_ = sys_conf->enable_ssl_sni || shared_.isOwned(ip);
    return true;
  }

  /// The version that the domain wants, when it may choose and there is that one; else the newest.
  std::string phpOf(const ConfigFile& record) const {
    std::string wanted = record.getOrEmpty("php");
    const bool isThere = std::find(shared_.php_.begin(), shared_.php_.end(), wanted) != shared_.php_.end();
    if (!wanted.empty() && !isThere) refuse("php '" + wanted + "'", "there is no such version");
    if (isThere && sys_conf->php_version_selector) return wanted;
    return shared_.php_.empty() ? "" : shared_.php_.back();
  }

  /// The copy that the servers get: of what is there now, else the one before, which is kept until then.
  void findCertificate(WebSite& site) {
    const std::vector<std::string> copies = files_.certificatesOf(domain_);
    const std::string now = certificateNow();
    const std::string wanted = now.empty() ? now : joined(domain_, ".", fingerprintOf(now), ".pem");
    const bool isNew = !now.empty() && !files_.has(wanted);
    if (isNew) account_.fresh.push_back({account_.name, domain_, files_.pathOf(wanted), now});
    const std::string used = isNew && !copies.empty() ? copies.front() : wanted;
    for (const std::string& copy : copies) {
      if (copy != used) account_.stale.push_back(files_.pathOf(copy));
    }
    if (files_.has(used)) site.certificate = files_.pathOf(used);
  }

  /// Empty when there is none that may be used.
  std::string certificateNow() {
    std::string certificate;
    std::string chain;
    std::string key;
    if (!mayHaveOwn_ || !readFile(".cert", certificate) || !readFile(".key", key)) return "";
    readFile(".cacert", chain);
    return joined(trimmed(certificate), "\n", trimmed(chain), "\n", trimmed(key), "\n");
  }

  /// The names beside the domain's own.
  bool readNames(WebSite& site, std::vector<std::string>& subdomains, std::vector<WebSite>& redirects) {
    ConfigFile pointers(nullptr);
    const char* account = account_.name.c_str();
    const bool isRead =
        (!files_.has(domain_ + ".subdomains") || readSubdomains(account, domain_.c_str(), subdomains)) &&
        (!files_.has(domain_ + ".pointers") || readPointers(account, domain_.c_str(), pointers));
    if (!isRead) isReadable_ = false;
    if (!isRead) return false;
    // A subdomain of that name is a site of its own.
    for (const std::string& name : subdomains) {
      if (!takeName(joined(name, ".", domain_), "subdomain")) continue;
      subdomainHosts_.push_back(name);
    }
    subdomains = std::exchange(subdomainHosts_, {});
    addAlias(site, kAlias + domain_);
    for (long long i = 0; i < pointers.size(); ++i) {
      const std::string pointer = pointers.getNameAt(i);
      if (!takeName(pointer, "pointer")) continue;
      if (pointers.isValue(pointer.c_str(), "redirect")) {
        redirects.push_back(redirectOf(site, pointer));
      } else {
        site.names.push_back(pointer);
        addAlias(site, kAlias + pointer);
      }
    }
    return true;
  }

  void addAlias(WebSite& site, const std::string& name) {
    if (isValidDomain(name.c_str()) && shared_.mayHave(account_.name, name) && names_.insert(name).second) {
      site.names.push_back(name);
    }
  }

  WebSite redirectOf(const WebSite& site, const std::string& pointer) {
    WebSite redirect;
    redirect.host = site.host;
    redirect.names = {pointer};
    redirect.addresses = site.addresses;
    redirect.certificate = site.certificate;
    redirect.isSuspended = site.isSuspended;
    redirect.target = site.host;
    addAlias(redirect, kAlias + pointer);
    return redirect;
  }

  void findFolders(const PageFolders& folders, const OpenDomain& one) {
    domain_ = one.domain;
    WebSite* subs = &account_.sites[one.first];
    WebSite& site = subs[one.subdomains.size()];
    findOwn(folders, site);
    for (std::size_t i = 0; i < one.subdomains.size(); ++i) {
      const std::string& name = one.subdomains[i];
      std::string why;
      subs[i].isSuspended = site.isSuspended;
      subs[i].root = joined(site.root, "/", name);
      subs[i].secureRoot = joined(site.secureRoot, "/", name);
      if (site.isSuspended || folders.findBelow(domain_, name, why)) continue;
      refuse(joined("subdomain '", name, "'"), why);
      subs[i].isSuspended = true;
    }
  }

  /// One whose folders lead elsewhere is closed: its old pages would be served on otherwise.
  void findOwn(const PageFolders& folders, WebSite& site) const {
    std::string why;
    const char* field = "public_html";
    bool isFound = folders.find(domain_, site.root, why) != 0;
    if (isFound) {
      field = "private_html";
      isFound = folders.findSecure(domain_, site.secureRoot, why) != 0;
    }
    if (isFound) return;
    refuse(field, why);
    site.isSuspended = true;
  }

  void addSubdomains(const WebSite& site, const std::vector<std::string>& subdomains) {
    for (const std::string& name : subdomains) {
      WebSite sub = site;
      sub.host = joined(name, ".", domain_);
      sub.names = {sub.host};
      addAlias(sub, kAlias + sub.host);
      account_.sites.push_back(std::move(sub));
    }
  }

  /// What the domain has of its own for the servers.
  void readOwn(WebSite& site) {
    for (std::size_t i = 0; i < std::size(kPieces); ++i) {
      std::string text;
      if (!readFile(kPieces[i].ending, text)) continue;
      const std::string why = kPieces[i].why(text);
      if (why.empty()) site.pieces[i] = linesOf(text);
      if (!why.empty()) refuse(kPieces[i].ending + 1, why);
    }
    site.types = readEndings(".mime.types");
    site.handlers = readEndings(".handlers");
  }

  bool readFile(const char* ending, std::string& text) {
    const std::string name = domain_ + ending;
    if (!files_.has(name)) return false;
    if (files_.read(name, text)) return true;
    refuse(ending + 1, std::strerror(errno));
    return false;
  }

  std::vector<std::string> readEndings(const char* ending) {
    std::string text;
    std::vector<std::string> all;
    if (!readFile(ending, text)) return all;
    ConfigFile record(nullptr);
    record.readFromString(text.c_str());
    for (long long i = 0; i < record.size(); ++i) {
      std::string line = endingsOf(record.getNameAt(i), record.getValueAt(i));
      if (line.empty()) refuse(joined(ending + 1, " '", record.getNameAt(i), "'"), "it is no name with endings");
      if (!line.empty()) all.push_back(std::move(line));
    }
    return all;
  }

  WebData& shared_;
  const ConfigFile& record_;
  WebAccount& account_;
  const DomainFiles files_;
  std::vector<OpenDomain> open_;
  std::string domain_;
  std::vector<std::string> subdomainHosts_;
  /// A name answers once in an account.
  std::set<std::string> names_;
  bool mayHaveOwn_ = false;
  bool isReadable_ = true;
};

int WebData::read(Text& result) {
  if (!readDomainOwners(owners_)) return fail(result, owners_.getFilename(), ": ", owners_.result);
  std::vector<Address> addresses;
  if (!readAddresses(addresses)) return fail(result, "the addresses cannot be read");
  for (const Address& address : addresses) {
    ours_.insert(address.text);
    if (address.status == kOwnedStatus) owned_.insert(address.text);
    std::vector<std::string>& all = linked_[address.text];
    for (const std::string& one : address.linked) all.push_back(one);
  }
  serverAddress_ = mainServerAddress();
  php_ = usablePhp();
  return 1;
}

const std::vector<std::string>& WebData::addressesOf(const std::string& ip) {
  std::vector<std::string>& all = linked_[ip];
  if (!all.empty() && all.front() == ip) return all;
  std::vector<std::string> linked = std::exchange(all, {ip});
  for (std::string& one : linked) {
    if (isValidIPv4(one.c_str()) || sys_conf->ipv6) all.push_back(std::move(one));
  }
  // Behind a translating router requests arrive at another address.
  if (ip == serverAddress_ && isValidIP(sys_conf->lan_ip)) all.emplace_back(sys_conf->lan_ip.view());
  return all;
}

bool WebData::isOwned(const std::string& ip) {
  return owned_.contains(ip);
}

bool WebData::mayHave(const std::string& account, const std::string& name) const {
  return mayHaveName(owners_, account.c_str(), name);
}

Gathered WebData::gather(const std::string& account, WebAccount& out) {
  std::optional<AsUser> panel(kPanelUser);
  if (!isAccountName(account.c_str()) || !pathExists(accountFile(account.c_str(), nullptr).c_str(), PathKind::folder)) {
    return Gathered::none;
  }
  ConfigFile record(nullptr);
  if (!readAccount(account.c_str(), record)) {
    errorLog("%.100s: %s", account.c_str(), record.result.orEmpty());
    return Gathered::unreadable;
  }
  const SystemAccount* system = systemAccounts().find(account.c_str());
  out.name = account;
  out.isSuspended = record.isValue("suspended", "yes") != 0;
  out.phpLimits = phpLimits_.of(account.c_str());
  out.arePhpLimitsKnown = phpLimits_.isKnown();
  if (system != nullptr) out.ids = system->ids;
  if (system != nullptr) out.home = system->home;
  if (!isPlainPath(out.home)) {
    errorLog("%s: home '%s' is refused: it is no path for a server", account.c_str(), printable(out.home).c_str());
    return Gathered::unreadable;
  }
  AccountSites sites(*this, record, out);
  const Gathered gathered = sites.read();
  panel.reset();
  if (gathered == Gathered::ready) sites.findFolders();
  return gathered;
}

}  // namespace zvtaskq
