#include "tally/logs/panel_logs.h"

#include "support/panel_folder.h"

TEST(PanelLogs, GoUpAPlaceAboveTheirSize) {
  PanelFolder panel;
  panel.makeFolder("logs");
  panel.conf.logdir = panel.path("logs").c_str();
  panel.conf.pipe_log = panel.path("logs/pipe.log").c_str();
  panel.conf.logs_to_keep = 3;
  const auto grow = [&](const char* name, long long size) {
    writeText(panel.path("logs/" + std::string(name)), "x");
    ASSERT_EQ(::truncate(panel.path("logs/" + std::string(name)).c_str(), size), 0);
  };
  const struct {
    const char* name;
    bool mine, stays;
  } logs[] = {{"error.log", true, false},    {"errortaskq.log", true, false}, {"system.log", true, false},
              {"security.log", true, false}, {"login.log", true, false},      {"pipe.log", true, true},
              {"other.log", false, true}};
  for (const int limit : {0, -1, 2}) {
    panel.conf.log_rotate_size = limit;
    for (const auto& log : logs) {
      grow(log.name, 2 * 1024 * 1024);
      rotatePanelLogs(&panel.conf);
      EXPECT_FALSE(exists(panel.path(joined("logs/", log.name, ".1")))) << log.name << limit;
      grow(log.name, 2 * 1024 * 1024 + 1);
      rotatePanelLogs(&panel.conf);
      EXPECT_EQ(exists(panel.path(joined("logs/", log.name, ".1"))), log.mine && limit == 2) << log.name << limit;
      EXPECT_EQ(exists(panel.path(joined("logs/", log.name))), log.stays || limit != 2) << log.name << limit;
      grow(log.name, 1);
    }
  }
  panel.conf.pipe_log = "/dev/null";
  rotatePanelLogs(&panel.conf);
  EXPECT_EQ(panel.logs.errors(), "");
}
