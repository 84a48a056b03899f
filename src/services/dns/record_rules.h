// What records of an account's own may be.
#pragma once

#include <string>

#include "services/dns/zone_records.h"

namespace zvtaskq {

class Config;

/// Why a record of an account's own must not stand in its zone; empty when it may. By the settings: underscores in the
/// names of hosts (`allow_dns_underscore`; the names of services and keys always may have them), MX records of other
/// names than the domain's (`full_mx_records`).
std::string whyRefused(const ZoneRecord& record, const Config& conf);

/// What name servers make themselves when they sign a zone, which is no record of anybody's.
bool isOfSigning(const ZoneRecord& record);

/// Quotes a text record's value: in pieces of 255 bytes, or with `wraps` off in one. Quotes and backslashes in it are
/// escaped.
std::string quoted(std::string_view value, bool wraps);

}  // namespace zvtaskq
