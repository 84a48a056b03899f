#include "tally/run/totals.h"

#include <algorithm>
#include <climits>

#include "account/model/limits.h"

namespace zvtaskq {

namespace {

template <class Number>
struct Field {
  const char* key;
  Number TallyTotals::*number;
  int bit;
};

constexpr Field<double> kMegabytes[] = {
    {"bandwidth", &TallyTotals::bandwidth, kTallyBandwidth},
    {"quota", &TallyTotals::quota, kTallyDisk},
};
constexpr Field<long long> kLong[] = {
    {"db_quota", &TallyTotals::db_quota, kTallyDisk},
    {"email_quota", &TallyTotals::email_quota, kTallyDisk},
    {"inode", &TallyTotals::inode, kTallyDisk},
    {"email_deliveries", &TallyTotals::email_deliveries, kTallyCounts},
    {"email_deliveries_incoming", &TallyTotals::email_deliveries_incoming, kTallyCounts},
    {"email_deliveries_outgoing", &TallyTotals::email_deliveries_outgoing, kTallyCounts},
};
constexpr Field<int> kCounts[] = {
    {"vdomains", &TallyTotals::vdomains, kTallyCounts}, {"nsubdomains", &TallyTotals::nsubdomains, kTallyCounts},
    {"nemails", &TallyTotals::nemails, kTallyCounts},   {"nemailf", &TallyTotals::nemailf, kTallyCounts},
    {"nemailml", &TallyTotals::nemailml, kTallyCounts}, {"nemailr", &TallyTotals::nemailr, kTallyCounts},
    {"mysql", &TallyTotals::mysql, kTallyCounts},       {"domainptr", &TallyTotals::domainptr, kTallyCounts},
    {"ftp", &TallyTotals::ftp, kTallyCounts},           {"nusers", &TallyTotals::nusers, kTallyCounts},
};

/// Calls `work` with every field.
template <class Work>
void each(Work work) {
  for (const auto& field : kMegabytes) work(field);
  for (const auto& field : kLong) work(field);
  for (const auto& field : kCounts) work(field);
}

void putNumber(ConfigFile& usage, const char* key, double number) {
  usage.setParam(key, number, kMegabyteForm);
}
template <class Whole>
void putNumber(ConfigFile& usage, const char* key, Whole number) {
  usage.setParam(key, number);
}

}  // namespace

void TallyTotals::add(const TallyTotals& other) {
  each([&](const auto& field) { this->*field.number += other.*field.number; });
}

void TallyTotals::put(ConfigFile& usage, int mask, bool withUsers) const {
  each([&](const auto& field) {
    const bool isLeftOut = field.key == std::string_view("nusers") && !withUsers;
    if ((mask & field.bit) != 0 && !isLeftOut) putNumber(usage, field.key, this->*field.number);
  });
}

TallyTotals TallyTotals::of(const ConfigFile& usage) {
  TallyTotals totals;
  each([&](const auto& field) {
    using Number = std::remove_reference_t<decltype(totals.*field.number)>;
    const double most = sizeof(Number) == sizeof(int) ? INT_MAX : 9e15;
    totals.*field.number = static_cast<Number>(std::min(amountOf(usage, field.key), most));
  });
  return totals;
}

}  // namespace zvtaskq
