#include "mail/mailbox_line.h"

#include <algorithm>
#include <charconv>

#include "core/text/text.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kQuotaRule = "userdb_quota_rule=*:bytes=";
/// Longer than any hash and path: no mail server has to read what is made to be long.
constexpr std::size_t kLongestLine = 4096;
constexpr int kFieldsBeforeQuota = 7;

/// Cuts the next field off.
std::string_view nextField(std::string_view& rest) {
  const std::size_t colon = std::min(rest.find(':'), rest.size());
  const std::string_view field = rest.substr(0, colon);
  rest.remove_prefix(std::min(colon + 1, rest.size()));
  return field;
}

long long quotaOf(std::string_view field) {
  if (!field.starts_with(kQuotaRule)) return 0;
  field.remove_prefix(kQuotaRule.size());
  long long bytes = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), bytes);
  return error == std::errc() && end == field.data() + field.size() && bytes > 0 ? bytes : 0;
}

bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c != '\x7f'; });
}

}  // namespace

MailboxLine::MailboxLine(std::string_view line) {
  const std::string_view content = trimmed(line);
  isEmpty = content.empty() || content.front() == '#';
  std::string_view rest = line.substr(0, kLongestLine);
  name = nextField(rest);
  hash = nextField(rest);
  // The name and the hash are two of the fields; ids and home are the account's, whatever the line says.
  for (int field = 2; field < kFieldsBeforeQuota; ++field) nextField(rest);
  quota = quotaOf(trimmed(rest));
  isOne_ = !isEmpty && line.size() <= kLongestLine && isMailName(std::string(name).c_str()) && isPlain(name) &&
           !hash.empty() && isPlain(hash);
}

std::string MailboxLine::text() const {
  const std::string rule = quota > 0 ? joined(kQuotaRule, std::to_string(quota)) : std::string();
  return joined(name, ":", hash, ":", std::to_string(ids.user), ":", std::to_string(ids.group), "::", home, "::", rule);
}

}  // namespace zvtaskq
