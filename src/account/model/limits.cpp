#include "account/model/limits.h"

#include <charconv>
#include <cmath>

#include "core/config/config.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

using Suspends = LimitKey::Suspends;
constexpr LimitKey kKeys[] = {
    {"bandwidth", true, Suspends::always}, {"quota", true, Suspends::withDisk},     {"inode", true, Suspends::withDisk},
    {"vdomains", false, Suspends::never},  {"nsubdomains", false, Suspends::never}, {"nemails", false, Suspends::never},
    {"nemailf", false, Suspends::never},   {"nemailml", false, Suspends::never},    {"nemailr", false, Suspends::never},
    {"mysql", false, Suspends::never},     {"domainptr", false, Suspends::never},   {"ftp", false, Suspends::never},
};
constexpr double kLargest = 9223372036854775808.0;

bool readAmount(std::string_view text, double& amount) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount);
  return error == std::errc() && end == text.data() + text.size() && amount >= 0 && amount <= kLargest;
}

}  // namespace

std::span<const LimitKey> limitKeys() {
  return kKeys;
}

Limit limitOf(const ConfigFile& record, const char* key, const char* account) {
  const Limit limit = shownLimitOf(record, key);
  const std::string_view value = record.getOrEmpty(key);
  if (limit.isUnlimited && !value.empty() && value != "unlimited") {
    errorLog("%s: %s=%.100s of account %s is no limit, and limits nothing", record.getFilename(), key, value.data(),
             account);
  }
  return limit;
}

Limit shownLimitOf(const ConfigFile& record, const char* key) {
  Limit limit{false, 0};
  if (!readAmount(record.getOrEmpty(key), limit.amount)) return {};
  if (std::string_view(key) == "bandwidth") limit.amount += amountOf(record, "additional_bandwidth");
  return limit;
}

std::vector<Exceeded> exceededLimits(const ConfigFile& limits, const ConfigFile& used, const char* account,
                                     const Config& conf) {
  std::vector<Exceeded> all;
  for (const LimitKey& row : kKeys) {
    const Limit limit = limitOf(limits, row.key, account);
    const double amount = amountOf(used, row.key);
    if (limit.isUnlimited || (row.isMeasured && limit.amount <= 0) || amount <= limit.amount) continue;
    const bool suspends =
        row.suspends == Suspends::always || (row.suspends == Suspends::withDisk && conf.disk_usage_suspend);
    all.push_back({&row, amount, limit.amount, suspends});
  }
  return all;
}

std::string suspensionReason(const std::vector<Exceeded>& exceeded) {
  std::string reason;
  for (const Exceeded& one : exceeded) {
    if (one.suspends) reason.append(reason.empty() ? "" : ",").append(one.what->key);
  }
  return reason;
}

double percentOf(double used, const Limit& limit) {
  return limit.isUnlimited || limit.amount <= 0 ? 0 : used / limit.amount * 100;
}

double amountOf(const ConfigFile& record, const char* key) {
  double amount = 0;
  return readAmount(record.getOrEmpty(key), amount) ? amount : 0;
}

}  // namespace zvtaskq
