#include "services/dns/zone_serial.h"

namespace zvtaskq {

namespace {

constexpr unsigned long kHighest = 0xffffffffUL;

}  // namespace

unsigned long serialAfter(unsigned long last, std::time_t now) {
  std::tm day{};
  ::localtime_r(&now, &day);
  const auto year = static_cast<unsigned long>(day.tm_year) + 1900;
  const auto month = static_cast<unsigned long>(day.tm_mon) + 1;
  const unsigned long today = ((year * 100 + month) * 100 + static_cast<unsigned long>(day.tm_mday)) * 100 + 1;
  if (last >= kHighest) return 1;
  return last < today ? today : last + 1;
}

}  // namespace zvtaskq
