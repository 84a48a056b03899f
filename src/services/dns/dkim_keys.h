// The keys that sign a domain's mail.
//
// They stand in the domain's folder of the mail server, "<emailvirtual>/<domain>", as its user's:
// "dkim.<selector>.key", the private key as PEM, 0640; "dkim.<selector>.pub", the public one in base64;
// "dkim.selector", the selector that mail is signed with. Selectors are "zv1", "zv2" and so on.
#pragma once

#include <string>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

/// Makes a domain's first key when it has none; with `rotates` another one, unless the newest is not in use yet. Mail
/// is signed with a new key a day after it was made, when every name server has forgotten that there was none; the old
/// one goes a week after that. Each call does what is due by then. 0 with the reason in `result`. May be called under
/// any identity, which is the same afterwards.
[[nodiscard]] int makeDkimKeys(const std::string& domain, bool rotates, Text& result);

/// The records for the keys of a domain: "<selector>._domainkey IN TXT ...", each without its line feed. What is no key
/// is left out, with an error-log line.
std::vector<std::string> dkimRecords(const std::string& domain);

}  // namespace zvtaskq
