#include "runner/monitor/services_table.h"

#include "core/record/config_file.h"
#include "support/fixtures.h"

TEST(ServiceActions, StrongestVerbWins) {
  for (const auto& [name, verbs, want] : Rows<const char*, std::vector<const char*>, const char*>{
           {"weakest to strongest", {"reload", "graceful", "reread", "restart", "start", "stop"}, "stop"},
           {"strongest first", {"stop", "restart", "start"}, "stop"},
           {"unknown verb comes first", {"bogus", "reload"}, "reload"},
           {"unknown verb replaces nothing", {"reload", "bogus"}, "reload"},
           {"unknown verb alone", {"bogus"}, "bogus"}}) {
    PendingServices pending;
    for (const char* verb : verbs) {
      ConfigFile line(nullptr);
      line.setParam("action", "httpd");
      line.setParam("value", verb);
      setHardest(pending, line);
    }
    ASSERT_EQ(pending.size(), 1U) << name;
    EXPECT_STREQ(pending.begin()->second.getValue("value"), want) << name;
  }
  ConfigFile first(nullptr), second(nullptr);
  PendingServices pending;
  first.fillFromPost("action=exim&value=restart&by=first");
  second.fillFromPost("action=exim&value=restart&by=second");
  setHardest(pending, first);
  setHardest(pending, second);
  EXPECT_STREQ(pending.at("exim").getValue("by"), "first");
}
