// How many things an account has, counted where those things live.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/sys/identity.h"
#include "core/sys/sys.h"
#include "core/tables/seeded_hash.h"
#include "tally/counts/ftp_accounts.h"

namespace zvtaskq {

class Config;

struct AccountCounts {
  /// Mailboxes; the account's own, which is its system account, is none of them.
  long long nemails = 0;
  /// Forwarders: names of `aliases`, but neither the catch-all "*" nor the account's own name.
  long long nemailf = 0;
  /// Mailing lists.
  long long nemailml = 0;
  /// Autoresponders; a mailbox's vacation message is none.
  long long nemailr = 0;
  /// Domain pointers, aliases and redirects alike.
  long long domainptr = 0;
  /// FTP accounts, in the file of all and in those of his domains, but for the account's own name.
  long long ftp = 0;
  /// Every file could be counted. The error log names each that could not, which counts nothing.
  bool isWhole = true;
};

/// Counts for one run: what all accounts share is read once. A count costs one open a file, and asks neither a program
/// nor the name service. docs/formats.md shows the files.
///
/// The mail server's files are read as its user, those of the panel as the panel's, through no link and without waiting
/// on anything; a missing one counts nothing, and one above 8 MB is refused. A name counts once however often it stands
/// in a file.
class Counts {
 public:
  /// `conf` must outlive it. Gives back the identity it finds, as `of` does.
  explicit Counts(const Config& conf);

  /// The counts of an account that has these domains (`readDomains`).
  AccountCounts of(const char* account, const std::vector<std::string>& domains);

 private:
  struct Kind;
  static const Kind kMail[];
  static const Kind kPanels[2];

  void countMail(const char* account, const std::string& domain, AccountCounts& counts);
  void countPanels(const char* account, const std::string& domain, AccountCounts& counts);
  bool count(const Descriptor& file, const Kind& kind, const char* account, long long& total);
  long long countNames(const Kind& kind, std::string_view account);

  std::string mailFolder_;
  Descriptor mail_;
  Ids mailUser_;
  Ids panelUser_;
  FtpAccounts ftp_;
  SeededHash hash_;
  /// Of the file being counted: its content, and what is kept of its names.
  std::string content_;
  std::vector<std::uint64_t> names_;
};

}  // namespace zvtaskq
