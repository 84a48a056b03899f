#include "tally/traffic/tally_file.h"

#include "core/tables/id_set.h"
#include "support/panel_folder.h"
#include "tally/traffic/bandwidth_breakdown.h"

namespace {
// 2026-11-05 and -06, 2026-12-01, all at noon UTC.
constexpr const char* kFifth = "1793880000";
constexpr const char* kSixth = "1793966400";
constexpr const char* kNextMonth = "1796126400";

double totalOf(const PanelFolder& panel, const std::string& text) {
  writeText(panel.path("tally"), text);
  return getTallyTotal(panel.path("tally").c_str());
}

std::string valueIn(const ConfigFile& record, const char* name, const char* inner = nullptr) {
  const char* value = record.getValue(name);
  if (value == nullptr || inner == nullptr) return value == nullptr ? "none" : value;
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(value);
  return valueIn(pairs, inner);
}
}  // namespace

TEST(TallyFile, EachMessageIsBilledOnce) {
  PanelFolder panel;
  for (const auto& [name, text, total] : Rows<const char*, std::string, double>{
           {"plain", "5=type=tally\n7.5=type=homedir&time=1\n", 12.5},
           {"an id twice", "5=type=email&id=a1\n5=type=email&id=a1\n5=type=email&id=a2\n", 10},
           {"without an id, or an empty one", "5=type=email\n5=type=email\n5=type=email&id=\n5=type=email&id=\n", 20},
           {"the same id encoded", "5=type=email&id=a-1\n5=type=%65mail&%69d=a%2D%31\n", 5},
           {"another type may repeat an id", "5=type=ftp&id=x\n5=type=ftp&id=x\n5=type=email&id=x\n", 10},
           {"of several ids the last", "5=type=email&id=a&id=b\n5=type=email&id=b\n5=type=email&id=a\n", 10},
           {"an id within a value is none", "5=type=email&path=?id=x\n5=type=email&path=?id=x\n", 10},
           {"nothing to count", "0=type=tally\n-5=a\nx=5\n\n=9\nnan=1\ninf=1\n1e999=1\n", 0},
           {"odd numbers", "1e3=a\n0x10=a\n 4=a\n+5=a\n6\n7 8=a\n1e=a\n", 1000 + 16 + 4 + 5 + 6 + 7 + 1},
           {"unfinished", "5=a\n6=a", 5},
           {"a NUL, a carriage return", std::string("5=type=email&id=q\0r\n5=type=email&id=q\r\n", 38), 5}})
    EXPECT_EQ(totalOf(panel, text), total) << name;
  EXPECT_EQ(getTallyTotal(panel.path("none").c_str()) + getTallyTotal(nullptr), 0);
  std::string many;
  for (int i = 0; i < 100'000; ++i) many += "1=type=email&id=1abcDE-" + std::to_string(i % 50'000) + "\n";
  EXPECT_EQ(totalOf(panel, many), 50'000);
  IdSet set;
  EXPECT_TRUE(set.add("") && set.add("a") && set.add(std::string_view("a\0", 2)) && !set.add("a"));
  set.clear();
  EXPECT_TRUE(set.size() == 0 && set.add("a"));
}

TEST(TallyFile, MonthByKindAndDay) {
  PanelFolder panel;
  const FixedClock november(1'794'500'000);
  const auto at = [](const char* time) { return std::string("&time=") + time; };
  std::string text =
      "1000=type=tally" + at(kFifth) + "&ftp_bw_total=100&http_bw_total=500&http_ul_total=50&zv_bw_total=250\n";
  text += "10=type=homedir" + at(kFifth) + "\n20=type=ftp" + at(kSixth) + "\n30=type=imap\n40=type=backup\n";
  text += "5=type=email&id=1&method=outgoing" + at(kSixth) + "\n5=type=email&id=1&method=incoming" + at(kSixth) + "\n";
  text += "6=type=email&id=2&method=incoming" + at(kFifth) + "\n";
  // A clock that ran years ahead does not end the month.
  text += "7=type=ftp&time=1999999999\n";
  writeText(panel.path("tally"), text);
  ConfigFile month(nullptr);
  ASSERT_TRUE(get_bandwidth_breakdown(panel.path("tally").c_str(), month));
  EXPECT_EQ(valueIn(month, "simpletotal"), "1118");
  const struct {
    const char *pair, *inner, *want;
  } cases[] = {
      {"2026 11 05", "http", "500"},   {"2026 11 05", "http_ul", "50"},    {"2026 11 05", "ftp", "107"},
      {"2026 11 05", "other", "350"},  {"2026 11 05", "email", "6"},       {"2026 11 05", "email_count_incoming", "1"},
      {"2026 11 06", "ftp", "20"},     {"2026 11 06", "imap", "30"},       {"2026 11 06", "other", "40"},
      {"2026 11 06", "total", "95"},   {"2026 11 06", "email_count", "1"}, {"2026 11 06", "email_count_outgoing", "1"},
      {"total", "http_homedir", "10"}, {"total", "email_count", "2"},      {"total", "total", "1118"}};
  for (const auto& c : cases) EXPECT_EQ(valueIn(month, c.pair, c.inner), c.want) << c.pair << " " << c.inner;
  EXPECT_EQ(valueIn(month, "email_count") + valueIn(month, "2026 11 07") + panel.logs.errors(), "2none");

  const FixedClock december(1'796'200'000);
  text += "9=type=ftp" + at(kNextMonth) + "\n1=type=ftp" + at(kSixth) + "\n";
  writeText(panel.path("tally"), text);
  ASSERT_TRUE(get_bandwidth_breakdown(panel.path("tally").c_str(), month));
  EXPECT_EQ(valueIn(month, "simpletotal") + valueIn(month, "2026 12 01", "ftp") + valueIn(month, "2026 11 05"),
            "109none");
  EXPECT_TRUE(holds(panel.logs.errors(), "Found a lower day than logged.  Probably a new month.  Should only see"));
  // Nothing since: the month is over all the same.
  const FixedClock january(1'800'000'000);
  ASSERT_TRUE(get_bandwidth_breakdown(panel.path("tally").c_str(), month));
  EXPECT_EQ(valueIn(month, "simpletotal") + valueIn(month, "2026 12 01"), "0none");
}
