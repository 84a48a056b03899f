#include "tally/traffic/bandwidth_breakdown.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

#include "core/record/config_file.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tables/id_set.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kMostIds = 1'000'000;
/// Seconds that the clocks of those who write tally lines may be ahead.
constexpr std::time_t kClockSlack = 86400;

enum Kind { kHttp, kHttpUpload, kHttpHomedir, kFtp, kImap, kEmail, kOther, kKinds };
constexpr const char* kKindNames[kKinds] = {"http", "http_ul", "http_homedir", "ftp", "imap", "email", "other"};

struct TypeRow {
  std::string_view type;
  Kind kind;
};
constexpr TypeRow kTypes[] = {{"http", kHttp}, {"http_ul", kHttpUpload}, {"homedir", kHttpHomedir}, {"ftp", kFtp},
                              {"imap", kImap}, {"pop", kImap},           {"pop3", kImap},           {"email", kEmail}};
/// The parts of a tally's own line.
constexpr TypeRow kTallyParts[] = {
    {"http_bw_total", kHttp}, {"http_ul_total", kHttpUpload}, {"ftp_bw_total", kFtp}, {"zv_bw_total", kOther}};

Kind kindOf(std::string_view type) {
  for (const TypeRow& row : kTypes) {
    if (row.type == type) return row.kind;
  }
  return kOther;
}

struct Traffic {
  double bytes[kKinds] = {};
  unsigned long long deliveries = 0;
  unsigned long long incoming = 0;
  unsigned long long outgoing = 0;

  double total() const {
    double sum = 0;
    for (const double part : bytes) sum += part;
    return sum;
  }
  void putDeliveries(ConfigFile& into) const {
    into.setParam("email_count", deliveries);
    into.setParam("email_count_incoming", incoming);
    into.setParam("email_count_outgoing", outgoing);
  }
  Text record() const {
    ConfigFile pairs(nullptr);
    for (int kind = 0; kind < kKinds; ++kind) pairs.setParam(kKindNames[kind], bytes[kind], "%.0f");
    pairs.setParam("total", total(), "%.0f");
    putDeliveries(pairs);
    return pairs.createPostString(1);
  }
};

/// A day as a number that grows with time, such as 20261105; its month is all but the last two digits.
constexpr int kMonth = 100;

class Breakdown : public TallyVisitor {
 public:
  void meet(const TallyLine& line) override {
    record_.read(line.record);
    const std::string_view type = record_["type"];
    const std::string_view id = record_["id"];
    if (!id.empty() && isRepeated(id) && type == "email") return;
    const int day = dayOf(record_.number("time"));
    if (day / kMonth > month_) startMonth(day);
    add(monthSum_, type, line.amount);
    add(days_[day], type, line.amount);
  }

  void put(ConfigFile& out) {
    // Of an account that was idle since, the last line is of a month that is over.
    const int today = dayOf(static_cast<double>(now_));
    if (month_ > 0 && today / kMonth > month_) startMonth(today);
    for (const auto& [day, traffic] : days_) {
      char name[32];
      std::snprintf(name, sizeof name, "%d %02d %02d", day / kMonth / kMonth, day / kMonth % kMonth, day % kMonth);
      const Text record = traffic.record();
      if (day > 0) out.setParam(name, record);
    }
    const Text record = monthSum_.record();
    out.setParam("total", record);
    out.setParam("simpletotal", monthSum_.total(), "%.0f");
    monthSum_.putDeliveries(out);
  }

 private:
  bool isRepeated(std::string_view id) {
    if (seen_.size() >= kMostIds) seen_.clear();
    return !seen_.add(id);
  }

  /// The local day of a second; of the line before, for one that has none.
  int dayOf(double second) {
    const auto time = static_cast<std::time_t>(second < 1e15 ? second : 0);
    // One stamp from the future must not end the month.
    if (ageOf(time, now_, kClockSlack).isAhead) return day_;
    if (time == 0 || (time >= dayStart_ && time < dayEnd_)) return day_;
    std::tm local{};
    if (::localtime_r(&time, &local) == nullptr) return day_;
    day_ = ((local.tm_year + 1900) * kMonth + local.tm_mon + 1) * kMonth + local.tm_mday;
    // The next lines are of the same day nearly always. Around a change of the clock a day has other hours.
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    std::tm next = local;
    ++next.tm_mday;
    dayStart_ = std::mktime(&local);
    dayEnd_ = std::mktime(&next);
    return day_;
  }

  void startMonth(int day) {
    if (month_ > 0 && day % kMonth < lastDay_ % kMonth) {
      errorLog("Found a lower day than logged.  Probably a new month.  Should only see this once.");
    }
    if (month_ > 0) {
      days_.clear();
      monthSum_ = {};
    }
    month_ = day / kMonth;
  }

  void add(Traffic& to, std::string_view type, double amount) {
    lastDay_ = day_;
    if (type == "tally") {
      double rest = amount;
      for (const TypeRow& part : kTallyParts) {
        const double bytes = record_.number(part.type);
        to.bytes[part.kind] += bytes;
        rest -= bytes;
      }
      to.bytes[kOther] += std::max(rest, 0.0);
      return;
    }
    const Kind kind = kindOf(type);
    to.bytes[kind] += amount;
    if (kind != kEmail) return;
    ++to.deliveries;
    if (record_["method"] == "incoming") ++to.incoming;
    if (record_["method"] == "outgoing") ++to.outgoing;
  }

  TallyRecord record_;
  IdSet seen_;
  std::map<int, Traffic> days_;
  Traffic monthSum_;
  const std::time_t now_ = std::time(nullptr);
  int month_ = 0;
  int day_ = 0;
  int lastDay_ = 0;
  std::time_t dayStart_ = 0;
  std::time_t dayEnd_ = 0;
};

}  // namespace

int get_bandwidth_breakdown(const char* path, ConfigFile& breakdown) {
  breakdown.empty();
  Breakdown found;
  int whole = 1;
  if (path != nullptr) {
    const AsRoot root;
    whole = visitTallyFile(path, found);
  }
  found.put(breakdown);
  return whole;
}

}  // namespace zvtaskq
