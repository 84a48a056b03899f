#include "core/sys/dates.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <string>
#include <string_view>

#include "core/sys/log.h"

namespace zvtaskq {

namespace {

struct Range {
  int lowest;
  int highest;
};
constexpr Range kYears{1970, 9999}, kMonths{1, 12}, kDays{1, 31}, kHours{0, 24}, kSixties{0, 59};
constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(const char* text) {
  std::string_view all = text == nullptr ? std::string_view() : std::string_view(text);
  all.remove_prefix(std::min(all.find_first_not_of(kBlanks), all.size()));
  return all.substr(0, all.find_last_not_of(kBlanks) + 1);
}

std::optional<int> numberIn(std::string_view text, Range range) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return {};
  if (number < range.lowest || number > range.highest) return {};
  return number;
}

std::optional<int> monthIn(std::string_view text) {
  const int named = Log::get_month_number(std::string(text).c_str());
  return named > 0 ? named : numberIn(text, kMonths);
}

/// Cuts the part up to the next colon off; an empty text is the part "0".
std::string_view nextPart(std::string_view& text) {
  if (text.empty()) return "0";
  const std::size_t end = text.find(':');
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return part;
}

/// Seconds since midnight.
bool readTime(std::string_view text, std::tm& into) {
  if (text.ends_with(':')) return false;
  const auto hour = numberIn(nextPart(text), kHours);
  const auto minute = numberIn(nextPart(text), kSixties);
  const auto second = numberIn(nextPart(text), kSixties);
  if (!hour || !minute || !second || !text.empty()) return false;
  if (*hour == kHours.highest && (*minute != 0 || *second != 0)) return false;
  into.tm_hour = *hour;
  into.tm_min = *minute;
  into.tm_sec = *second;
  return true;
}

}  // namespace

std::optional<long long> getTimeFrom(const char* year, const char* month, const char* day, const char* time) {
  const auto wantedYear = numberIn(trimmed(year), kYears);
  const auto wantedMonth = monthIn(trimmed(month));
  const auto wantedDay = numberIn(trimmed(day), kDays);
  std::tm parts{};
  if (!wantedYear || !wantedMonth || !wantedDay || !readTime(trimmed(time), parts)) return {};
  parts.tm_year = *wantedYear - 1900;
  parts.tm_mon = *wantedMonth - 1;
  parts.tm_mday = *wantedDay;
  parts.tm_isdst = -1;
  // A day that the month does not have would silently become one of the next month.
  std::tm noon = parts;
  noon.tm_hour = 12;
  noon.tm_min = noon.tm_sec = 0;
  if (std::mktime(&noon) == -1 || noon.tm_mon != *wantedMonth - 1) return {};
  return static_cast<long long>(std::mktime(&parts));
}

}  // namespace zvtaskq
