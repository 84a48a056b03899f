#include "tally/bruteforce/lines/match.h"

#include <algorithm>
#include <charconv>

#include "core/sys/log.h"
#include "core/text/line_search.h"
#include "core/text/text.h"
#include "tally/bruteforce/lines/address.h"

namespace zvtaskq {

namespace {

constexpr int kMatchDebug = 2000;
constexpr auto kNowhere = std::string_view::npos;
/// More attempts than a line can honestly report.
constexpr long long kMostAttempts = 1'000'000'000;

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int length(std::string_view text) {
  return static_cast<int>(text.size());
}

/// The text between the first `after` at or behind `from` and the `until` that follows.
struct Between {
  std::string_view text;
  /// Where `after` stands, and the text behind it.
  std::size_t after = kNowhere;
  std::size_t begin = kNowhere;
  bool found = false;
};

/// An empty text stands everywhere.
std::size_t placeOf(std::string_view text, std::string_view message, std::size_t from) {
  return text.empty() ? from : findText(message, text, from);
}

Between between(std::string_view message, std::string_view after, std::string_view until, std::size_t from = 0) {
  Between part;
  part.after = placeOf(after, message, from);
  if (part.after == kNowhere) return part;
  part.begin = part.after + after.size();
  const std::size_t end = placeOf(until, message, part.begin);
  if (end == kNowhere) return part;
  part.text = message.substr(part.begin, end - part.begin);
  part.found = true;
  return part;
}

bool holdsTexts(const BruteFilter& filter, std::string_view message) {
  std::size_t at = findText(message, filter.text);
  for (const std::string* more : {&filter.text2, &filter.text3}) {
    if (at != kNowhere && !more->empty()) at = findText(message, *more, at + 1);
  }
  return at != kNowhere;
}

/// The text that may be an address, from `from` on.
Between addressAt(const BruteFilter& filter, std::string_view message, std::size_t from) {
  Between part = between(message, filter.ipAfter, filter.ipUntil, from);
  if (part.begin == kNowhere) return part;
  if (filter.ipUntil.empty()) part.text = message.substr(part.begin);
  const auto blank = std::find_if(part.text.begin(), part.text.end(), isBlank);
  part.text = part.text.substr(0, static_cast<std::size_t>(blank - part.text.begin()));
  return part;
}

/// Looks through what follows the first text that may be an address, for the one that counts.
void chooseAddress(const BruteFilter& filter, std::string_view message, Between part, AddressChoice choice,
                   AddressTable& addresses, BruteMatch& out) {
  out.addressText = part.text;
  out.address = addresses.numberOf(part.text);
  out.isMisplaced = out.address == NameTable::kNone;
  // A filter without `ip_after` knows of one place only.
  while (!filter.ipAfter.empty() && !(out.isAmbiguous && choice != AddressChoice::last)) {
    part = addressAt(filter, message, part.after + 1);
    if (!part.found) break;
    const std::uint32_t other = addresses.numberOf(part.text);
    if (other == NameTable::kNone || other == out.address) continue;
    out.isAmbiguous = out.address != NameTable::kNone;
    if (!out.isAmbiguous || choice == AddressChoice::last) out.address = other;
  }
  if (out.isAmbiguous && choice == AddressChoice::none) out.address = NameTable::kNone;
}

long long attemptsIn(const BruteFilter& filter, std::string_view message) {
  if (filter.attemptsAfter.empty()) return 1;
  const Between part = between(message, filter.attemptsAfter, filter.attemptsUntil);
  long long attempts = 1;
  if (!part.found || part.text.empty() || !isDigit(part.text.front())) return 1;
  const auto read = std::from_chars(part.text.data(), part.text.data() + part.text.size(), attempts);
  if (read.ptr != part.text.data() + part.text.size()) return 1;
  return read.ec == std::errc() && attempts < kMostAttempts ? attempts : kMostAttempts;
}

std::string_view userIn(const BruteFilter& filter, std::string_view message) {
  if (filter.userAfter.empty()) return {};
  const Between part = between(message, filter.userAfter, filter.userUntil);
  if (part.found) return part.text;
  if (part.begin == kNowhere) {
    debug(kMatchDebug, "(%s) Unable to find user_after (%s) from '%.*s'", filter.name.c_str(), filter.userAfter.c_str(),
          length(message), message.data());
  } else {
    debug(kMatchDebug, "(%s) Unable to find user_until (%s) from %.*s", filter.name.c_str(), filter.userUntil.c_str(),
          length(message), message.data());
  }
  return {};
}

}  // namespace

void BruteLine::cut() const {
  isCut_ = true;
  const int words = !whole_.empty() && isDigit(whole_.front()) ? 3 : 5;
  const auto last = whole_.end();
  auto begin = whole_.begin(), end = begin;
  for (int i = 0; i < words; ++i) {
    begin = std::find_if_not(end, last, isBlank);
    end = std::find_if(begin, last, isBlank);
  }
  const std::string_view word =
      whole_.substr(static_cast<std::size_t>(begin - whole_.begin()), static_cast<std::size_t>(end - begin));
  if (std::none_of(word.begin(), word.end(), [](char c) { return c == '[' || c == ':'; })) return;
  program_ = word;
  message_ = trimmed(whole_.substr(static_cast<std::size_t>(end - whole_.begin())));
}

std::uint32_t AddressTable::numberOf(std::string_view text) {
  // What stands there is in its clean form, and so are nearly all texts.
  const std::uint32_t known = clean_.find(text);
  if (known != NameTable::kNone) return known;
  const std::string address = cleanAddress(text);
  return address.empty() ? NameTable::kNone : clean_.add(address);
}

AddressChoice addressChoiceOf(const char* word) {
  const std::string_view choice = word == nullptr ? std::string_view() : std::string_view(word);
  if (choice == "last") return AddressChoice::last;
  return choice == "skip" ? AddressChoice::none : AddressChoice::first;
}

int fail_match(const BruteFilter& filter, const BruteLine& line, AddressChoice choice, AddressTable& addresses,
               BruteMatch& out) {
  const std::string_view message = line.messageOf(filter.binary);
  if (message.empty() || !holdsTexts(filter, message)) return 0;
  debug(kMatchDebug, "Login Fail Match: %.*s", length(message), message.data());
  const Between address = addressAt(filter, message, 0);
  if (address.begin == kNowhere) {
    debug(kMatchDebug, "%s: Unable to find ip_after from %.*s", filter.name.c_str(), length(message), message.data());
    return 0;
  }
  if (!address.found) {
    debug(kMatchDebug, "Unable to find ip_until from %.*s", length(message), message.data());
    return 0;
  }
  out = BruteMatch{};
  out.filter = &filter;
  chooseAddress(filter, message, address, choice, addresses, out);
  out.attempts = attemptsIn(filter, message);
  out.user = userIn(filter, message);
  return 1;
}

int parseLine(const std::vector<const BruteFilter*>& filters, const BruteLine& line, AddressChoice choice,
              AddressTable& addresses, BruteMatch& out, std::uint64_t worthwhile) {
  constexpr std::size_t kBits = 64;
  for (std::size_t i = 0; i < filters.size(); ++i) {
    if (i < kBits && (worthwhile >> i & 1) == 0) continue;
    if (fail_match(*filters[i], line, choice, addresses, out)) return 1;
  }
  return 0;
}

}  // namespace zvtaskq
