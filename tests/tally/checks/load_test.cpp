#include "tally/checks/load.h"

#include "support/notice_recorder.h"
#include "support/panel_folder.h"

namespace {
constexpr long long kNow = 1'800'000'000;
constexpr double kAverages[] = {3, 2.345703125, 1};
int averagesKnown = 3;

class LoadCheck : public ::testing::Test {
 protected:
  LoadCheck() {
    averagesKnown = 3;
    sentNotices().clear();
    panel_.conf.check_load = 1.5;
    panel_.conf.check_load_minute = 5;
    panel_.conf.load_notice_interval = 10;
    panel_.conf.load_top_string = "true";
    panel_.conf.language = "tlh";
    writeText(panel_.path("templates/load_check_message.txt"), "|?SUBJECT=Load `LOAD` `LANG`|");
  }
  void stamp(const std::string& pairs) { panel_.put("admin/admin.conf", pairs); }
  void check() {
    const FixedClock clock(kNow);
    check_system_load(&panel_.conf);
  }

  PanelFolder panel_;
  std::string settings_ = panel_.path("admin/admin.conf");
};
}  // namespace

/// The kernel's averages, as the test wants them.
extern "C" int getloadavg(double* into, int count) noexcept {
  for (int i = 0; i < count && i < averagesKnown && i < static_cast<int>(std::size(kAverages)); ++i)
    into[i] = kAverages[i];
  return averagesKnown;
}

TEST_F(LoadCheck, TellsWhenAboveTheLimitAndDue) {
  for (const auto& [name, limit, minute, sent, subject, error] :
       Rows<const char*, double, int, std::string, const char*, const char*>{
           {"first notice", 1.5, 5, "", "Load 2.35", ""},
           {"equal load", 2.345703125, 5, "", nullptr, ""},
           {"one minute", 2.5, 1, "", "Load 3.00", ""},
           {"fifteen minutes", 0.5, 15, "", "Load 1.00", ""},
           {"no such minute", 0.5, 10, "", nullptr, "check_load_minute is not set to 1, 5 or 15."},
           {"told of that before", 0.5, 10, "", nullptr, ""},
           {"sent 600 seconds ago", 1.5, 5, std::to_string(kNow - 600), nullptr, ""},
           {"sent 601 seconds ago", 1.5, 5, std::to_string(kNow - 601), "Load 2.35", ""},
           {"stamp of the future", 1.5, 5, std::to_string(kNow + 1), "Load 2.35", "load_limit_last_sent is 1800000001"},
           {"stamp that is no number", 1.5, 5, "soon", "Load 2.35", ""}}) {
    sentNotices().clear();
    panel_.conf.check_load = limit;
    panel_.conf.check_load_minute = minute;
    const std::string before = "load_limit_last_sent=" + sent + "\nother=1\n";
    stamp(before);
    const LogCapture logs;
    check();
    ASSERT_EQ(sentNotices().size(), subject == nullptr ? 0U : 1U) << name;
    EXPECT_TRUE(sentNotices().empty() || sentNotices()[0].subject == joined(subject, " tlh")) << name;
    EXPECT_EQ(contentOf(settings_), subject == nullptr ? before : "load_limit_last_sent=1800000000\nother=1\n");
    EXPECT_TRUE(holds(logs.errors(), error)) << name;
    EXPECT_EQ(logs.errors().empty(), *error == '\0') << name << logs.errors();
  }
}

TEST_F(LoadCheck, ScriptsGetTheTokens) {
  const std::string seen = panel_.path("seen");
  for (const char* when : {"pre", "post"}) {
    panel_.script(joined("custom/load_spike_notice_", when, ".sh"),
                  "echo \"$ONE $FIVE $FIFTEEN $LOAD $MINUTE $LIMIT $LANG\" >>" + seen);
  }
  panel_.conf.language = "de";
  stamp("a=1\n");
  check();
  const std::string line = "3.00 2.35 1.00 2.35 5 1.5 de\n";
  EXPECT_EQ(contentOf(seen), line + line) << panel_.logs.errors();
}

TEST_F(LoadCheck, IsToldAgainWhenItReachedNobodyAndSaysWhatGoesWrong) {
  stamp("a=1\n");
  loseNotices(true);
  check();
  loseNotices(false);
  failing("safe_write.*:ENOSPC", [&] { check(); });
  EXPECT_TRUE(holds(panel_.logs.errors(), "Unable to write " + settings_ + " : "));
  EXPECT_EQ(contentOf(settings_), "a=1\n");
  check();
  EXPECT_EQ(sentNotices().size(), 3U);
  EXPECT_EQ(contentOf(settings_), "a=1\nload_limit_last_sent=1800000000\n");

  averagesKnown = -1;
  EXPECT_TRUE(holds(printed([&] { check(); }, 10), "check_system_load:  getLoadAverage returned 0. Aborting."));
}
