// What the tallies of one run have in common: read once, whoever it is asked for.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/record/config_file.h"
#include "core/tree/folder_names.h"
#include "services/database/usage.h"
#include "tally/counts/account_counts.h"
#include "tally/disk/owned_files.h"
#include "tally/run/allocation.h"
#include "tally/run/progress_bar.h"
#include "tally/run/totals.h"
#include "tally/traffic/byte_logs.h"

namespace zvtaskq {

class Config;

/// The administrator's script after each user.
inline constexpr const char* kUserScript = "tally_user_post.sh";

class TallyRun {
 public:
  /// `quotas` and `inodes` may be null. All must outlive the object.
  TallyRun(const Config& conf, ConfigFile* quotas, ConfigFile* inodes, int mask);

  const Config& conf;
  ConfigFile* const quotas;
  ConfigFile* const inodes;
  const int mask;
  bool wants(int bits) const { return (mask & bits) != 0; }

  /// Puts aside the byte logs of the scope's accounts (all for an empty list) and reads the FTP server's log.
  /// Does nothing without the bandwidth bit. Before the web servers are told to open their logs anew.
  void putTrafficAside(const std::vector<std::string>& accounts);
  /// Tells the web servers, when a log was put aside and nobody told them of others.
  void tellServers(bool toldAlready);
  /// The scope's byte logs; null when they could not be put aside, and traffic is not billed then.
  ByteLogs* byteLogs() { return byteLogs_.get(); }
  /// The notes of the FTP traffic are whole.
  bool ftpIsRead() const { return ftpIsRead_; }

  /// There is such a script: looked up once.
  bool hasUserScript() const { return hasUserScript_; }
  /// Webalizer is wanted and there: looked up once.
  bool hasWebalizer() const { return hasWebalizer_; }
  Counts& counts();
  /// The databases of all accounts; asked of the server once.
  const Databases& databases();
  /// The owner of a domain by the table of owners; null when nobody is.
  const char* ownerOf(const char* domain) const;
  /// Mail outside the homes is counted on top of the quotas, by the settings and partitions of now: looked up once.
  bool countsMailOnTop();
  /// The names of a folder's files that end so; read once.
  FolderNames& namesIn(const std::string& folder, std::string_view ending);
  /// The bytes that an owner has among webmail's temporary files.
  long long webmailFilesOf(unsigned uid);

  /// Whether the account is met for the first time. One in two lists counts in the first: an error-log line for the
  /// other.
  bool claimUser(const std::string& account, const std::string& list);
  /// Whether the domain is met for the first time, in the lists of accounts that it is not said to belong to another.
  bool claimDomain(const std::string& domain, const char* account);
  /// Keeps what an account's record, which has been read, allots to it, for `allotted`; null for one that was not met.
  void noteLimits(const std::string& account, const ConfigFile& record) {
    limits_[account].add(record, account.c_str());
  }
  const Allocation* allotted(const std::string& account) const;
  bool hasMet(const std::string& account) const { return users_.contains(account); }
  /// An account was left out.
  void skipped() { whole_ = false; }
  bool isWhole() const { return whole_; }

  ProgressBar progress;

 private:
  ConfigFile owners_{nullptr};
  std::unique_ptr<ByteLogs> byteLogs_;
  bool ftpIsRead_ = false;
  std::unique_ptr<Counts> counts_;
  std::unique_ptr<DatabaseOwners> databaseOwners_;
  std::unique_ptr<Databases> databases_;
  std::optional<bool> mailOnTop_;
  std::unique_ptr<OwnedFiles> webmail_;
  std::map<std::string, FolderNames> folders_;
  std::unordered_map<std::string, Allocation> limits_;
  std::map<std::string, std::string> users_;
  std::map<std::string, std::string> domains_;
  bool whole_ = true;
  bool hasUserScript_;
  bool hasWebalizer_;
};

}  // namespace zvtaskq
