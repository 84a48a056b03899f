// Which certificates the panel keeps renewed: the record "<domain>.letsencrypt" beside a domain asks for one. What was
// issued by it stands in "<domain>.issued", which is ours.
#pragma once

#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

inline constexpr const char* kWishEnding = "letsencrypt";
inline constexpr const char* kIssuedEnding = "issued";

/// The names that the domain's record asks for, separated by colons, the domain first; empty when there is no such
/// record, or it says `renew=no`. They are
/// - the domain, and below it the words of `names` (else of the setting `letsencrypt_list_selected`), each of which has
///   to be in `letsencrypt_list` or be a subdomain of the domain,
/// - when `letsencrypt_multidomain_cert` allows it, its pointers that are aliases, with "www": with 2 unless the record
///   says `pointers=no`, with 1 when it says `pointers=yes`.
/// What is another account's by the table of owners is left out, and so is what exceeds a hundred names, with an
/// error-log line. Works as the panel's user, which is the identity of the moment. 0 when a record cannot be read, with
/// an error-log line.
[[nodiscard]] int readWanted(const char* account, const std::string& domain, const ConfigFile& owners,
                             std::string& names);

}  // namespace zvtaskq
