#include "tally/run/tally_run.h"

#include <algorithm>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "services/web/web_server_signal.h"
#include "tally/disk/mail_counting.h"
#include "tally/logs/web_logs.h"
#include "tally/logs/web_statistics.h"
#include "tally/traffic/ftp_traffic.h"

namespace zvtaskq {

namespace {

constexpr const char* kWebmailFiles = "/var/www/html/webmail/tmp";

}  // namespace

TallyRun::TallyRun(const Config& config, ConfigFile* quotaTable, ConfigFile* inodeTable, int tallyMask)
    : conf(config),
      quotas(quotaTable),
      inodes(inodeTable),
      mask(tallyMask),
      hasUserScript_(hookExists(config, kUserScript)),
      hasWebalizer_(config.webalizer != 0 && zvtaskq::hasWebalizer()) {
  if (!readDomainOwners(owners_)) {
    errorLog("Unable to read %s: %s", owners_.getFilename(), owners_.result.orEmpty());
  }
}

const char* TallyRun::ownerOf(const char* domain) const {
  return owners_.getValue(domain);
}

void TallyRun::putTrafficAside(const std::vector<std::string>& accounts) {
  if (!wants(kTallyBandwidth)) return;
  ftpIsRead_ = collectFtpTraffic(&conf) != 0;
  byteLogs_ = std::make_unique<ByteLogs>(conf);
  // A host belongs to the owner of the domain that it is, or is below of.
  const auto isWanted = [&](std::string_view host) {
    std::string name(host);
    const char* owner = owners_.getValue(name.c_str());
    while (owner == nullptr && name.find('.') != std::string::npos) {
      name.erase(0, name.find('.') + 1);
      owner = owners_.getValue(name.c_str());
    }
    return owner != nullptr && (accounts.empty() || std::binary_search(accounts.begin(), accounts.end(), owner));
  };
  if (!byteLogs_->begin(isWanted)) byteLogs_.reset();
}

void TallyRun::tellServers(bool toldAlready) {
  if (byteLogs_ == nullptr || !byteLogs_->anyPutAside()) return;
  if (!toldAlready) static_cast<void>(web_server::hup(conf, nullptr));
  byteLogs_->serversWereTold();
}

Counts& TallyRun::counts() {
  if (counts_ == nullptr) counts_ = std::make_unique<Counts>(conf);
  return *counts_;
}

const Databases& TallyRun::databases() {
  if (databases_ != nullptr) return *databases_;
  ListFile accounts(nullptr);
  std::vector<DatabaseUsage> all;
  static_cast<void>(listAccounts(accounts));
  // Those of the last time, when the server does not answer: the error log says so.
  static_cast<void>(readDatabases(all));
  databaseOwners_ = std::make_unique<DatabaseOwners>(accounts);
  databases_ = std::make_unique<Databases>(std::move(all), *databaseOwners_);
  return *databases_;
}

bool TallyRun::countsMailOnTop() {
  if (!mailOnTop_) mailOnTop_ = countEmail(&conf) != 0;
  return *mailOnTop_;
}

FolderNames& TallyRun::namesIn(const std::string& folder, std::string_view ending) {
  return folders_.try_emplace(folder, folder, ending).first->second;
}

long long TallyRun::webmailFilesOf(unsigned uid) {
  if (webmail_ == nullptr) webmail_ = std::make_unique<OwnedFiles>(kWebmailFiles);
  return webmail_->of(uid);
}

const Allocation* TallyRun::allotted(const std::string& account) const {
  const auto known = limits_.find(account);
  return known == limits_.end() ? nullptr : &known->second;
}

bool TallyRun::claimUser(const std::string& account, const std::string& list) {
  const auto [place, isNew] = users_.emplace(account, list);
  if (isNew) return true;
  if (place->second != list) {
    errorLog("%s: account %s is in the list of %s too, and is counted there", list.c_str(), account.c_str(),
             place->second.c_str());
  }
  return false;
}

bool TallyRun::claimDomain(const std::string& domain, const char* account) {
  const char* owner = ownerOf(domain.c_str());
  const auto [place, isNew] = domains_.emplace(domain, account);
  const bool isAnothers = owner != nullptr && std::string_view(owner) != account;
  if (isNew && !isAnothers) return true;
  if (isNew) domains_.erase(place);
  errorLog("%s: the domain %s of account %s belongs to %s, and is counted there",
           accountFile(account, "domains.list").c_str(), domain.c_str(), account,
           isAnothers ? owner : place->second.c_str());
  return false;
}

}  // namespace zvtaskq
