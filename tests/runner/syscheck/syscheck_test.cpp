#include <gtest/gtest.h>

#include "runner/syscheck/clock.h"
#include "runner/syscheck/issues.h"
#include "runner/syscheck/setting_names.h"

namespace zvtaskq {
namespace {

TEST(Syscheck, NearestSetting) {
  const std::vector<std::string_view> known = {"nginx", "nginx_proxy", "port", "ssl_port", "timeout"};
  struct {
    const char* name;
    const char* want;
  } const cases[] = {{"ngnix", "nginx"}, {"NGINX_proxi", "nginx_proxy"}, {"sslport", "ssl_port"},     {"prot", "port"},
                     {"ox", ""},         {"time_out_of_request", ""},    {"timeoutttttttttttttt", ""}};
  for (const auto& one : cases) EXPECT_EQ(nearestName(one.name, known), one.want) << one.name;
  EXPECT_EQ(nearestName(std::string(1 << 20, 'x'), known), "");
}

TEST(Syscheck, ClockAndLines) {
  constexpr long long kNow = 1'800'000'000;
  using Kept = ClockFacts::Kept;
  struct {
    ClockFacts facts;
    const char* want;
  } const cases[] = {{{kNow, kNow + 86000, kNow + 86000, Kept::yes}, nullptr},
                     {{kNow, 0, 0, Kept::unknown}, nullptr},
                     {{kNow, kNow + 90000, 0, Kept::yes}, "before the day on which"},
                     {{kNow, kNow, kNow + 90000, Kept::yes}, "before the last line"},
                     {{kNow, kNow, kNow, Kept::no}, "nothing keeps"}};
  for (const auto& one : cases) {
    Issues issues;
    addClockIssues(one.facts, issues);
    EXPECT_EQ(issues.isEmpty(), one.want == nullptr);
    EXPECT_NE(issues.text().find(one.want == nullptr ? "" : one.want), std::string::npos) << one.want;
  }
  Issues issues;
  issues.add(Concern::files, "a\n- b\x1b", std::string(9000, 'x'));
  EXPECT_TRUE(issues.text().starts_with("Files and folders\n- a\\x0A- b\\x1B: xxx")) << issues.text();
  EXPECT_LT(issues.text().size(), 700U);
}

TEST(Syscheck, AccountsShareTheLines) {
  Issues issues;
  for (int i = 0; i < 100; ++i) issues.add(Concern::records, "ann", "x", "ann");
  for (int i = 0; i < 3; ++i) issues.add(Concern::records, "bob", "x", "bob");
  issues.add(Concern::records, "server", "x");
  EXPECT_FALSE(issues.isFull(Concern::records));
  const std::string text = issues.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 22) << text;
  for (const char* want : {"- bob: x.\n- bob: x.\n- bob: x.\n- server: x.\n", "- ann: x.\n", "- and 84 more\n"}) {
    EXPECT_NE(text.find(want), std::string::npos) << want << text;
  }
}

}  // namespace
}  // namespace zvtaskq
