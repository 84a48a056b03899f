#include "runner/monitor/services_table.h"

#include "core/record/config_file.h"
#include "support/fixtures.h"

TEST(ServiceActions, TheFirstOfTheStrongestVerbsWins) {
  using Verbs = std::vector<const char*>;
  for (const auto& [verbs, want] :
       Rows<Verbs, const char*>{{{"reload", "graceful", "reread", "restart", "start", "stop", "stop"}, "stop5"},
                                {{"stop", "restart", "start"}, "stop0"},
                                {{"bogus", "reload"}, "reload1"},
                                {{"reload", "bogus"}, "reload0"},
                                {{"bogus"}, "bogus0"}}) {
    PendingServices pending;
    for (std::size_t i = 0; i < verbs.size(); ++i) {
      ConfigFile line(nullptr);
      line.fillFromPost(joined("action=httpd&value=", verbs[i], "&place=", std::to_string(i)));
      setHardest(pending, line);
    }
    ASSERT_EQ(pending.size(), 1U) << want;
    const ConfigFile& left = pending.at("httpd");
    EXPECT_EQ(joined(left.getValue("value"), left.getValue("place")), want);
  }
}
