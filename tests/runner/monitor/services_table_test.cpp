#include "runner/monitor/services_table.h"

#include "core/record/config_file.h"
#include "support/fixtures.h"

TEST(ServiceActions, StrongestVerbWins) {
  const struct {
    const char* name;
    std::vector<const char*> verbs;
    const char* want;
  } cases[] = {
      {"weakest to strongest", {"reload", "graceful", "reread", "restart", "start", "stop"}, "stop"},
      {"strongest first", {"stop", "restart", "start"}, "stop"},
      {"unknown verb comes first", {"bogus", "reload"}, "reload"},
      {"unknown verb replaces nothing", {"reload", "bogus"}, "reload"},
      {"unknown verb alone", {"bogus"}, "bogus"},
  };
  for (const auto& c : cases) {
    PendingServices pending;
    for (const char* verb : c.verbs) {
      ConfigFile line(nullptr);
      line.setParam("action", "httpd");
      line.setParam("value", verb);
      setHardest(pending, line);
    }
    ASSERT_EQ(pending.size(), 1U) << c.name;
    EXPECT_STREQ(pending.begin()->second.getValue("value"), c.want) << c.name;
  }
  ConfigFile first(nullptr), second(nullptr);
  PendingServices pending;
  first.fillFromPost("action=exim&value=restart&by=first");
  second.fillFromPost("action=exim&value=restart&by=second");
  setHardest(pending, first);
  setHardest(pending, second);
  EXPECT_STREQ(pending.at("exim").getValue("by"), "first");
}
