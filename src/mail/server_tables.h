// The mail server's tables that are changed line by line: "name: value" in a file below `emailvirtual`.
//
//   domainowners  a domain, and the account that it belongs to
//   domains       a name that mail is taken for, and the domain whose mail files count for it: itself, or for a pointer
//                 the domain that it points to
//   suspended     an account or a domain that is suspended, and what becomes of its incoming mail
//
// All may be called under any identity, which is the same afterwards. Without a mail server there is nothing to change,
// and no failure; 0 comes with a line in `result`.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "core/text/text.h"

namespace zvtaskq {

inline constexpr const char* kDomainOwners = "domainowners";
inline constexpr const char* kMailDomains = "domains";
inline constexpr const char* kMailSuspended = "suspended";

/// Whether there is a mail server's user, and his folder.
bool hasMailServer();
/// A file below `emailvirtual`.
std::string mailFile(std::string_view name);

using MailPairs = std::map<std::string, std::string, std::less<>>;
/// Reads a table; of a name that is there twice the first counts, as the mail server has it.
[[nodiscard]] int readMailTable(const char* table, MailPairs& pairs, Text& result);
using PicksPair = std::function<bool(std::string_view name, std::string_view value)>;
/// Makes a table hold each name of `wanted` once, with its value, and no other pair that `goes` picks. A table that
/// does so already is not written.
[[nodiscard]] int changeMailTable(const char* table, const MailPairs& wanted, const PicksPair& goes, Text& result);

/// Tells the mail server that an account or a domain is suspended: mail that it sent and that is in the queue waits,
/// and incoming mail is refused unless `allow_incoming_email_on_suspend` is on; or that it is so no more.
[[nodiscard]] int sayMailSuspended(std::string_view accountOrDomain, Text& result);
[[nodiscard]] int sayMailActive(std::string_view accountOrDomain, Text& result);

}  // namespace zvtaskq
