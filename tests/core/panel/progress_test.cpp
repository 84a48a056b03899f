#include "core/panel/progress.h"

#include "support/panel_folder.h"

class Tracker : public testing::Test {
 protected:
  Tracker() {
    EXPECT_EQ(::chown(panel_.path("admin").c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
    panel_.conf.track_task_queue_processes = 2;
  }
  std::string own(const char* file) const { return all_ + "/" + std::to_string(::getpid()) + "/" + file; }

  PanelFolder panel_;
  const std::string all_ = panel_.path("admin/task_queue_processes");
  ConfigFile task_{nullptr};
};

TEST_F(Tracker, MakesItsFolderAnew) {
  for (const std::string& path : {all_, own("")}) {
    ::mkdir(path.c_str(), 0755);
    ASSERT_EQ(::chown(path.c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
  }
  writeText(own("instructions"), "action=stop\nvalue=backup\n");
  task_.fillFromPost("action=backup&value=bob&ftp_password=secret");
  {
    const TaskTracking tracking(task_);
    EXPECT_FALSE(exists(own("instructions")));
    EXPECT_EQ(modeOf(all_), 0700U);
    track_process("Backup User %s", "bob\nforged");
    set_program_location("somewhere");
    EXPECT_TRUE(contentOf(own("process_info")).starts_with("action=backup\nftp_password=\nstart="));
    EXPECT_TRUE(holds(contentOf(own("level_tracker")), ": Backup User bob\\x0Aforged\n"));
    EXPECT_EQ(contentOf(own("process_location")), "somewhere\n");
  }
  EXPECT_FALSE(exists(own("")));
}

TEST_F(Tracker, RefusesASquattedFolder) {
  ASSERT_EQ(::symlink("/tmp", all_.c_str()), 0);
  EXPECT_EQ(set_task_queue_tracking(task_), 0);
  EXPECT_TRUE(holds(panel_.logs.errors(), "set_task_queue_tracking: unable to create directory (" + all_ + "): "));
  panel_.conf.track_task_queue_processes = 0;
  EXPECT_EQ(set_task_queue_tracking(task_), 0);
}
