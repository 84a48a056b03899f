#include "core/panel/progress.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/sys/privileges.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

// Need root and the panel's user: they run as the panel does.
class Tracker : public testing::Test {
 protected:
  void SetUp() override {
    if (realIds().user != 0 || getUID(kPanelUser) == kUnknownId) GTEST_SKIP() << "needs root and the panel's user";
    ASSERT_EQ(conf_.set_defaults(), 1);
    ASSERT_EQ(::chown(folder_.path().c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
    conf_.admindir = folder_.path().c_str();
    useConfiguration(&conf_);
  }
  void TearDown() override { useConfiguration(nullptr); }
  std::string own(const char* file) const {
    return folder_.path("task_queue_processes/" + std::to_string(::getpid()) + "/" + file);
  }

  Folder folder_;
  Config conf_{nullptr};
  ConfigFile task_{nullptr};
};

TEST_F(Tracker, MakesItsFolderAnew) {
  ::mkdir(folder_.path("task_queue_processes").c_str(), 0755);
  ::mkdir(own("").c_str(), 0755);
  for (const std::string& path : {folder_.path("task_queue_processes"), own("")}) {
    ASSERT_EQ(::chown(path.c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
  }
  writeText(own("instructions"), "action=stop\nvalue=backup\n");
  conf_.track_task_queue_processes = 2;
  task_.fillFromPost("action=backup&value=bob&ftp_password=secret");
  {
    const TaskTracking tracking(task_);
    EXPECT_FALSE(exists(own("instructions")));
    EXPECT_EQ(modeOf(folder_.path("task_queue_processes")), 0700U);
    track_process("Backup User %s", "bob\nforged");
    set_program_location("somewhere");
    const std::string info = contentOf(own("process_info"));
    EXPECT_EQ(info.find("action=backup\nftp_password=\nstart="), 0U) << info;
    EXPECT_NE(contentOf(own("level_tracker")).find(": Backup User bob\\x0Aforged\n"), std::string::npos);
    EXPECT_EQ(contentOf(own("process_location")), "somewhere\n");
  }
  EXPECT_FALSE(exists(own("")));
}

TEST_F(Tracker, RefusesASquattedFolder) {
  LogCapture log;
  ASSERT_EQ(::symlink("/tmp", folder_.path("task_queue_processes").c_str()), 0);
  EXPECT_EQ(set_task_queue_tracking(task_), 0);
  EXPECT_NE(log.errors().find("set_task_queue_tracking: unable to create directory (" +
                              folder_.path("task_queue_processes") + "): "),
            std::string::npos);
  conf_.track_task_queue_processes = 0;
  EXPECT_EQ(set_task_queue_tracking(task_), 0);
}
