// The tokens of the template of FTP hosts. What is known of them stands in this table alone; docs/templates.md is made
// from it.
#pragma once

#include <cstddef>

namespace zvtaskq {

enum class HostToken { address, domain, account, passwords, login, ids, homes };

struct HostTokenRow {
  HostToken token;
  const char* name;
  bool isList;
  const char* example;
  const char* meaning;
};

/// In the order of the enumeration.
inline constexpr HostTokenRow kHostTokens[] = {
    {HostToken::address, "ADDRESS", false, "192.0.2.20", "An address that the account has for itself."},
    {HostToken::domain, "DOMAIN", false, "bob.example",
     "A domain on that address: the first of a host that takes any name, and its name for clients that say one."},
    {HostToken::account, "USER", false, "bob", "The account."},
    {HostToken::passwords, "PASSWORDS", false, "/usr/local/zorvane/data/users/bob/domains/bob.example.ftppasswd",
     "The password file: that of the domain when there is one and `unified_ftp_password_file` is off, else "
     "`ftppasswd`."},
    {HostToken::login, "LOGIN", false, "%U@bob.example",
     "The log-in name as the tally bills it: with the domain when the file is the domain's, since names in it may be "
     "without."},
    {HostToken::ids, "IDS", false, "1004-1004",
     "The user ids that its lines may have: the account's alone in a file of a domain, else those of people."},
    {HostToken::homes, "HOMES", false, "^/home/bob(/\\.?[^/.][^/]*)*/?$",
     "The homes that they may have, as ProFTPD's pattern: the account's and what is below, else all beside his."},
};
inline constexpr std::size_t kHostTokenCount = sizeof kHostTokens / sizeof kHostTokens[0];

}  // namespace zvtaskq
