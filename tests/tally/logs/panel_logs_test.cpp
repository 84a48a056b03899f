#include "tally/logs/panel_logs.h"

#include "support/panel_folder.h"

TEST(PanelLogs, GoUpAPlaceAboveTheirSize) {
  PanelFolder panel;
  panel.makeFolder("logs");
  panel.conf.logdir = panel.path("logs").c_str();
  panel.conf.pipe_log = panel.path("logs/pipe.log").c_str();
  panel.conf.logs_to_keep = 3;
  const Rows<const char*, bool, bool> logs{{"error.log", true, false},  {"errortaskq.log", true, false},
                                           {"system.log", true, false}, {"security.log", true, false},
                                           {"login.log", true, false},  {"pipe.log", true, true},
                                           {"other.log", false, true}};
  for (const int limit : {0, -1, 2}) {
    panel.conf.log_rotate_size = limit;
    for (const auto& [name, mine, stays] : logs) {
      const std::string log = panel.path(joined("logs/", name));
      for (const bool above : {false, true}) {
        writeText(log, std::string(2 * 1024 * 1024 + (above ? 1 : 0), 'x'));
        rotatePanelLogs(&panel.conf);
        EXPECT_EQ(exists(log + ".1"), mine && above && limit == 2) << name << limit;
        EXPECT_EQ(exists(log), stays || !above || limit != 2) << name << limit;
      }
      writeText(log, "x");
    }
  }
  panel.conf.pipe_log = "/dev/null";
  rotatePanelLogs(&panel.conf);
  EXPECT_EQ(panel.logs.errors(), "");
}
