#include "runner/monitor/process_table.h"

#include "core/panel/state_folder.h"
#include "core/process/child.h"
#include "core/process/execute.h"
#include "runner/monitor/watched_processes.h"
#include "support/panel_folder.h"

TEST(ProcessTable, HasTheFirstWordOfEachNameAndItsIds) {
  const PanelFolder panel;
  std::vector<Child> sleepers;
  const auto add = [&](const char* name) {
    fs::copy("/bin/sleep", panel.path(name), fs::copy_options::skip_existing);
    sleepers.push_back(Child::start(ChildPlan::program(panel.path(name), {"600"})));
    const std::string pid = std::to_string(sleepers.back().pid());
    while (contentOf("/proc/" + pid + "/comm") == contentOf("/proc/self/comm")) nap(1);
    return pid;
  };
  const std::string first = add("zvtwin"), second = add("zvtwin"), spaced = add("zv two words"),
                    tabbed = add(" zvtab\tx");
  add("zv-fifteen-long");
  ConfigFile processes(nullptr);
  EXPECT_EQ(getProcessList(processes), 1);
  const std::string twins = joined(processes.getValue("zvtwin"));
  EXPECT_TRUE(twins == first + " " + second + " " || twins == second + " " + first + " ") << twins;
  EXPECT_STREQ(processes.getValue("zv"), (spaced + " ").c_str());
  EXPECT_STREQ(processes.getValue("zvtab"), (tabbed + " ").c_str());

  EXPECT_TRUE(running("zv") == 1 && running("zv two words") == 0);
  EXPECT_EQ(panel.logs.errors(), "");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(running("zv-fifteen-long-and-more"), 1);
  EXPECT_EQ(running("zv-fifteen-lond-and-more"), 0);
  EXPECT_TRUE(holds(panel.logs.errors(), "zv-fifteen-long-and-more is watched as zv-fifteen-long: "));
  EXPECT_EQ(times(panel.logs.errors(), "zv-fifteen-long-and-more"), 1);
}

TEST(WatchedProcesses, WhatWasKnownOfAServiceIsAHintAlone) {
  const PanelFolder panel;
  fs::copy("/bin/sleep", panel.path("zvhint"));
  const std::string known = stateFile("watched_processes");
  const auto has = [](const char* service) { return WatchedProcesses().has(service); };
  EXPECT_FALSE(has("zvhint"));
  {
    const Child sleeper = Child::start(ChildPlan::program(panel.path("zvhint"), {"600"}));
    const std::string pid = std::to_string(sleeper.pid());
    while (processName(pid.c_str()) != "zvhint") nap(1);
    EXPECT_TRUE(has("zvhint"));
    EXPECT_EQ(contentOf(known), "zvhint=" + pid + "\n");
    for (const char* wrong : {"1", "", "../self", "99999999999999999999"}) {
      writeText(known, joined("zvhint=", wrong, "\n"));
      EXPECT_TRUE(has("zvhint")) << wrong;
      EXPECT_EQ(contentOf(known), "zvhint=" + pid + "\n");
    }
  }
  EXPECT_FALSE(has("zvhint"));
}
