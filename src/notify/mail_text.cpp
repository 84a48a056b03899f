#include "notify/mail_text.h"

#include <algorithm>
#include <cstdio>

#include "core/sys/random.h"
#include "core/text/names.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestLocalPart = 64;
constexpr std::size_t kLongestPlainText = 68;
/// An encoded word may be 75 characters in all; this leaves room for the name of the longer character set.
constexpr std::size_t kLongestEncodedPart = 56;
/// What a line of a body may hold before its soft line break.
constexpr std::size_t kLongestLine = 75;
constexpr std::size_t kIdLength = 24;
constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr std::string_view kAddressSigns = "!#$%&'*+/=?^_`{|}~-.";
constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool isAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool isPlain(char c) {
  return c >= ' ' && c <= '~';
}

/// The bytes of the UTF-8 character that `text` begins with, 0 when it begins with none. Overlong forms, surrogates and
/// what lies beyond the last character are none.
std::size_t characterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
  const bool outside = (lead == 0xED && byte(1) > 0x9F) || (lead == 0xF4 && byte(1) > 0x8F);
  return overlong || outside ? 0 : length;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

const char* characterSetOf(std::string_view text) {
  return isUtf8(text) ? "UTF-8" : "ISO-8859-1";
}

void appendHex(std::string& out, char c) {
  const auto byte = static_cast<unsigned char>(c);
  out += '=';
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 15];
}

std::string quotedName(std::string_view name) {
  const std::string line = oneLine(name);
  const bool plain = std::all_of(line.begin(), line.end(), isPlain) && line.size() <= kLongestPlainText;
  if (!plain) return encodeHeader(line);
  std::string quoted = "\"";
  for (const char c : line) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string dateText(std::time_t date) {
  std::tm local{};
  ::localtime_r(&date, &local);
  const long minutes = local.tm_gmtoff / 60;
  const long distance = minutes < 0 ? -minutes : minutes;
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %d %02d:%02d:%02d %c%02ld%02ld", kDays[local.tm_wday], local.tm_mday,
                kMonths[local.tm_mon], local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec,
                minutes < 0 ? '-' : '+', distance / 60, distance % 60);
  return text;
}

/// One line of a body, without its line feed.
void appendLine(std::string& out, std::string_view line) {
  // A lone dot would end the message for some, and "From " begin another.
  const bool risky = line.starts_with('.') || line.starts_with("From ");
  std::size_t column = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    const bool blankAtEnd = (c == ' ' || c == '\t') && i + 1 == line.size();
    const bool asItIs = (isPlain(c) || c == '\t') && c != '=' && !blankAtEnd && !(risky && i == 0);
    const std::size_t width = asItIs ? 1 : 3;
    if (column + width > kLongestLine) {
      out += "=\n";
      column = 0;
    }
    // Behind a soft line break it may be a dot or a "From " again.
    if (asItIs && (column > 0 || i == 0 || (c != '.' && c != 'F'))) {
      out += c;
      ++column;
    } else {
      appendHex(out, c);
      column += 3;
    }
  }
}

}  // namespace

bool isMailAddress(std::string_view address) {
  const std::size_t at = address.rfind('@');
  if (at == std::string_view::npos || at == 0 || at > kLongestLocalPart) return false;
  const std::string_view local = address.substr(0, at);
  const std::string domain(address.substr(at + 1));
  const auto fits = [](char c) { return isAlphanumeric(c) || kAddressSigns.find(c) != std::string_view::npos; };
  if (!std::all_of(local.begin(), local.end(), fits)) return false;
  if (local.front() == '.' || local.back() == '.' || local.find("..") != std::string_view::npos) return false;
  return domain == "localhost" || isValidDomain(domain.c_str());
}

std::string oneLine(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }, ' ');
  return std::string(trimmed(line));
}

std::string encodeHeader(std::string_view text) {
  std::string line = oneLine(text);
  const bool plain = line.size() <= kLongestPlainText && std::all_of(line.begin(), line.end(), isPlain);
  if (plain && line.find("=?") == std::string::npos) return line;
  const char* set = characterSetOf(line);
  const bool utf8 = isUtf8(line);
  std::string encoded;
  std::string part;
  const auto close = [&] {
    if (!part.empty()) encoded += joined(encoded.empty() ? "" : "\n ", "=?", set, "?Q?", part, "?=");
    part.clear();
  };
  for (std::size_t i = 0; i < line.size();) {
    // A character stands in one word as a whole.
    const std::size_t length = utf8 ? characterLength(std::string_view(line).substr(i)) : 1;
    std::string character;
    for (const char c : line.substr(i, length)) {
      if (isAlphanumeric(c)) {
        character += c;
      } else if (c == ' ') {
        character += '_';
      } else {
        appendHex(character, c);
      }
    }
    if (part.size() + character.size() > kLongestEncodedPart) close();
    part += character;
    i += length;
  }
  close();
  return encoded;
}

std::string encodeBody(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    appendLine(out, line);
    out += '\n';
  }
  return out;
}

std::string composeMail(const MailText& mail) {
  return joined("From: ", quotedName(mail.fromName), " <", mail.from, ">\n",
                mail.sender.empty() ? "" : joined("X-Zorvane-Sender: ", mail.sender, "\n"), "To: <", mail.to,
                ">\nSubject: ", encodeHeader(mail.subject), "\nDate: ", dateText(mail.date), "\nMessage-ID: <",
                std::to_string(static_cast<long long>(mail.date)), ".", getRandText(kIdLength), "@", mail.server,
                ">\nAuto-Submitted: auto-generated\nMIME-Version: 1.0\nContent-Type: text/plain; charset=",
                characterSetOf(mail.body), "\nContent-Transfer-Encoding: quoted-printable\n\n", encodeBody(mail.body));
}

}  // namespace zvtaskq
