#include "services/dns/zone_text.h"

#include <algorithm>

#include "core/config/config.h"
#include "services/dns/record_rules.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kHead =
    "; Made by the panel from dns_zone.txt and written anew, but for what stands below the line about own records.\n";
constexpr std::string_view kMark = "; Records of the account's own, which are kept:\n";

bool isSame(const ZoneRecord& a, const ZoneRecord& b) {
  return a.name == b.name && a.type == b.type && a.data == b.data;
}

/// Whether the account's own record stands in the place of the template's.
bool replaces(const ZoneRecord& own, const ZoneRecord& made) {
  if (own.name != made.name || made.type == "SOA") return false;
  if (own.type == "CNAME" || made.type == "CNAME") return true;
  return own.type == made.type && own.tag() == made.tag();
}

/// Whether a record of somebody else's zone is taken over. Addresses of hosts that the template makes are this server's
/// by now, and name servers are the panel's.
bool isTakenOver(const ZoneRecord& record, const std::vector<ZoneRecord>& made) {
  if (record.type == "SOA" || isOfSigning(record) || (record.type == "NS" && record.name == "@")) return false;
  return std::none_of(made.begin(), made.end(), [&](const ZoneRecord& one) {
    const bool isAddress = one.type == "A" || one.type == "AAAA";
    return isSame(one, record) || (isAddress && one.name == record.name && one.type == record.type);
  });
}

std::vector<ZoneRecord> ownRecords(const PresentZone& present, const std::vector<ZoneRecord>& made) {
  std::vector<ZoneRecord> own;
  for (const ZoneRecord& record : present.own) {
    const bool isKnown =
        std::any_of(own.begin(), own.end(), [&](const ZoneRecord& one) { return isSame(one, record); });
    if (!isKnown && (present.isOurs || isTakenOver(record, made))) own.push_back(record);
  }
  return own;
}

/// The template's text without the records that own ones stand in the place of.
std::string without(const std::string& filled, const std::vector<ZoneRecord>& made,
                    const std::vector<ZoneRecord>& own) {
  std::string text;
  std::size_t from = 0;
  for (const ZoneRecord& record : made) {
    if (std::none_of(own.begin(), own.end(), [&](const ZoneRecord& one) { return replaces(one, record); })) continue;
    text.append(filled, from, record.begin - from);
    from = record.end;
  }
  return text.append(filled, from);
}

/// A text's words in quotes, the long ones in pieces.
void quoteTexts(ZoneRecord& record, bool wraps) {
  if (record.type != "TXT" && record.type != "SPF") return;
  for (std::string& word : record.data) {
    const bool isQuoted = word.starts_with('"');
    const std::string_view inner = isQuoted ? std::string_view(word).substr(1, word.size() - 2) : word;
    if (!isQuoted || (wraps && inner.find('\\') == std::string_view::npos)) {
      std::string pieces = quoted(inner, wraps);
      word.swap(pieces);
    }
  }
}

}  // namespace

int readPresentZone(std::string_view text, std::string_view domain, PresentZone& zone, Text& result) {
  std::vector<ZoneRecord> all;
  if (!readZone(text, domain, all, result)) return 0;
  zone.serial = serialOf(all);
  const std::size_t mark = text.find(joined("\n", kMark));
  zone.isOurs = mark != std::string_view::npos;
  const auto firstOwn = std::find_if(all.begin(), all.end(),
                                     [&](const ZoneRecord& record) { return !zone.isOurs || record.begin > mark; });
  zone.own.assign(std::make_move_iterator(firstOwn), std::make_move_iterator(all.end()));
  return 1;
}

std::string withSerial(std::string_view text, unsigned long serial) {
  const std::string number = std::to_string(serial);
  const std::size_t end = std::min(text.find(kMark), text.size());
  std::string filled;
  filled.reserve(text.size());
  std::size_t from = 0;
  for (std::size_t at = text.find(kSerialPlace); at < end; at = text.find(kSerialPlace, from)) {
    filled.append(text.substr(from, at - from)).append(number);
    from = at + kSerialPlace.size();
  }
  return filled.append(text.substr(from));
}

int composeZone(const std::string& domain, const std::string& filled, const PresentZone& present, const Config& conf,
                std::string& text, std::vector<RefusedRecord>& refused, Text& result) {
  std::vector<ZoneRecord> made;
  if (!readZone(filled, domain, made, result)) return 0;
  std::vector<ZoneRecord> own = ownRecords(present, made);
  for (ZoneRecord& record : own) {
    quoteTexts(record, conf.wrap_long_dns_values);
    if (!conf.allow_ttl_override) record.ttl = -1;
    const std::string why = whyRefused(record, conf);
    if (!why.empty()) refused.push_back({joined(record.name, " ", record.type), why});
  }
  text = joined(kHead, own.empty() ? filled : without(filled, made, own));
  text.append(kMark);
  if (!own.empty() && filled.find("$ORIGIN") != std::string::npos) text.append(joined("$ORIGIN ", domain, ".\n"));
  for (const ZoneRecord& record : own) text.append(lineOf(record));
  return 1;
}

}  // namespace zvtaskq
