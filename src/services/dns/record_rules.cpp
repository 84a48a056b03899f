#include "services/dns/record_rules.h"

#include <algorithm>
#include <charconv>

#include "core/config/config.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestPiece = 255;
constexpr std::size_t kLongestName = 253;
constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestData = 16384;

using Words = std::vector<std::string>;

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isLabel(std::string_view label, bool underscores) {
  const auto fits = [&](char c) { return isLetterOrDigit(c) || c == '-' || (underscores && c == '_'); };
  return !label.empty() && label.size() <= kLongestLabel && std::all_of(label.begin(), label.end(), fits);
}

/// A name of labels, a "*" in front when `wildcard`; absolute or relative.
bool isName(std::string_view name, bool underscores, bool wildcard) {
  if (name == "@") return true;
  if (name.ends_with('.')) name.remove_suffix(1);
  if (name.empty() || name.size() > kLongestName) return false;
  if (wildcard && name == "*") return true;
  if (wildcard && name.starts_with("*.")) name.remove_prefix(2);
  while (true) {
    const std::size_t dot = name.find('.');
    if (!isLabel(name.substr(0, dot), underscores)) return false;
    if (dot == std::string_view::npos) return true;
    name.remove_prefix(dot + 1);
  }
}

bool isNumber(const std::string& word, unsigned most) {
  unsigned number = 0;
  const auto [behind, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && behind == word.data() + word.size() && number <= most;
}

bool isHost(const std::string& word) {
  return word == "." || isName(word, true, false);
}

bool areNumbers(const Words& words, std::size_t count, unsigned most) {
  if (words.size() < count) return false;
  return std::all_of(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count),
                     [&](const std::string& word) { return isNumber(word, most); });
}

/// Words that no name server takes for anything but a value: quoted ones, or of letters, digits and some signs.
bool isPlainValue(const std::string& word) {
  if (word.starts_with('"')) return word.size() >= 2;
  return std::all_of(word.begin(), word.end(), [](char c) {
    return isLetterOrDigit(c) || std::string_view("._:/+=@*,-~?!&%#|<>'").find(c) != std::string_view::npos;
  });
}

bool isAddress4(const Words& words) {
  return words.size() == 1 && isValidIPv4(words[0].c_str());
}
bool isAddress6(const Words& words) {
  return words.size() == 1 && isValidIPv6(words[0].c_str());
}
bool isOneHost(const Words& words) {
  return words.size() == 1 && isHost(words[0]);
}
bool isExchange(const Words& words) {
  return words.size() == 2 && areNumbers(words, 1, 65535) && isHost(words[1]);
}
bool isService(const Words& words) {
  return words.size() == 4 && areNumbers(words, 3, 65535) && isHost(words[3]);
}
bool isAuthorization(const Words& words) {
  return words.size() == 3 && areNumbers(words, 1, 255) && isLabel(words[1], false) && isPlainValue(words[2]);
}
bool isAnything(const Words& words) {
  return std::all_of(words.begin(), words.end(), isPlainValue);
}

struct TypeRule {
  std::string_view type;
  bool (*fits)(const Words& words);
  const char* wants;
  /// Its name is a host's, in which underscores are the administrator's affair.
  bool namesHost = false;
};
constexpr TypeRule kTypes[] = {
    {"A", isAddress4, "an IPv4 address", true},
    {"AAAA", isAddress6, "an IPv6 address", true},
    {"MX", isExchange, "a number up to 65535 and a host name", true},
    {"CNAME", isOneHost, "a host name"},
    {"DNAME", isOneHost, "a host name"},
    {"NS", isOneHost, "a host name"},
    {"PTR", isOneHost, "a host name"},
    {"SRV", isService, "three numbers up to 65535 and a host name"},
    {"CAA", isAuthorization, "a number up to 255, a word and a value"},
};
constexpr TypeRule kOther = {"", isAnything, "plain or quoted words"};

const TypeRule& ruleFor(std::string_view type) {
  const auto* found =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const TypeRule& rule) { return rule.type == type; });
  return found == std::end(kTypes) ? kOther : *found;
}

}  // namespace

std::string whyRefused(const ZoneRecord& record, const Config& conf) {
  const TypeRule& rule = ruleFor(record.type);
  const bool underscores = !rule.namesHost || conf.allow_dns_underscore;
  if (!isName(record.name, underscores, true)) return "it is no name that a record may have";
  if (record.type == "SOA") return "a zone has one SOA record, which the panel makes";
  if (record.type.empty() || !std::all_of(record.type.begin(), record.type.end(), isLetterOrDigit)) {
    return "there is no such type";
  }
  if (record.type == "MX" && record.name != "@" && !conf.full_mx_records) {
    return "MX records of other names than the domain's need full_mx_records=1";
  }
  if (record.dataText().size() > kLongestData) return "it is too long";
  return rule.fits(record.data) ? "" : joined("it wants ", rule.wants);
}

bool isOfSigning(const ZoneRecord& record) {
  constexpr std::string_view kMade[] = {"RRSIG",  "NSEC", "NSEC3",   "NSEC3PARAM",
                                        "DNSKEY", "CDS",  "CDNSKEY", "TYPE65534"};
  return std::find(std::begin(kMade), std::end(kMade), record.type) != std::end(kMade);
}

std::string quoted(std::string_view value, bool wraps) {
  std::string all;
  do {
    const std::string_view piece = wraps ? value.substr(0, kLongestPiece) : value;
    value.remove_prefix(piece.size());
    if (!all.empty()) all += ' ';
    all += '"';
    for (const char c : piece) {
      if (c == '"' || c == '\\') all += '\\';
      all += c;
    }
    all += '"';
  } while (!value.empty());
  return all;
}

}  // namespace zvtaskq
