#include "runner/monitor/process_table.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

/// Processes that do nothing under a name, for as long as it lives.
class Sleepers {
 public:
  ~Sleepers() {
    for (const pid_t pid : pids_) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
  }
  pid_t add(const char* name) {
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::prctl(PR_SET_NAME, name);
      static_cast<void>(!::write(ready[1], "x", 1));
      for (;;) ::pause();
    }
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
    pids_.push_back(pid);
    return pid;
  }

 private:
  std::vector<pid_t> pids_;
};

}  // namespace

TEST(ProcessTable, HasTheFirstWordOfEachNameAndItsIds) {
  const PanelFolder panel;
  Sleepers sleepers;
  const std::string first = std::to_string(sleepers.add("zvtwin")), second = std::to_string(sleepers.add("zvtwin"));
  const std::string spaced = std::to_string(sleepers.add("zv two words")),
                    tabbed = std::to_string(sleepers.add(" zvtab\tx"));
  sleepers.add("zv-fifteen-long");
  ConfigFile processes(nullptr);
  EXPECT_EQ(getProcessList(processes), 1);
  const std::string twins = std::string(processes.getValue("zvtwin") == nullptr ? "" : processes.getValue("zvtwin"));
  EXPECT_TRUE(twins == first + " " + second + " " || twins == second + " " + first + " ") << twins;
  EXPECT_STREQ(processes.getValue("zv"), (spaced + " ").c_str());
  EXPECT_STREQ(processes.getValue("zvtab"), (tabbed + " ").c_str());

  EXPECT_EQ(running("zv"), 1);
  EXPECT_EQ(running("zv two words"), 0);
  EXPECT_EQ(panel.logs.errors(), "");
  EXPECT_EQ(running("zv-fifteen-long-and-more"), 1);
  EXPECT_EQ(running("zv-fifteen-long-and-more"), 1);
  EXPECT_EQ(running("zv-fifteen-lond-and-more"), 0);
  const std::string errors = panel.logs.errors();
  const std::size_t told = errors.find("zv-fifteen-long-and-more is watched as zv-fifteen-long: ");
  EXPECT_NE(told, std::string::npos) << errors;
  EXPECT_EQ(errors.find("zv-fifteen-long-and-more", told + 1), std::string::npos) << errors;
}
