#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/config.h"
#include "core/config_file.h"
#include "core/privileges.h"
#include "core/system_layer.h"
#include "runner/service_actions.h"
#include "runner/services_table.h"
#include "runner/signals.h"
#include "runner/task_tracker.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

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
    ConfigFile pending(nullptr);
    for (const char* verb : c.verbs) {
      ConfigFile line(nullptr);
      line.setParam("action", "httpd");
      line.setParam("value", verb);
      setHardest(pending, line);
    }
    ConfigFile kept(nullptr);
    kept.fillFromPost(pending.getValue("httpd"));
    EXPECT_STREQ(kept.getValue("value"), c.want) << c.name;
    EXPECT_EQ(pending.size(), 1);
  }
  ConfigFile first(nullptr), second(nullptr), pending(nullptr);
  first.fillFromPost("action=exim&value=restart&by=first");
  second.fillFromPost("action=exim&value=restart&by=second");
  setHardest(pending, first);
  setHardest(pending, second);
  EXPECT_STREQ(pending.getValue("exim"), "action=exim&by=first&value=restart");
}

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

TEST(Signals, AnswersEachInItsWords) {
  LogCapture log;
  handleSignal(SIGHUP);
  EXPECT_NE(log.errors().find("] Bad Signal 1\n"), std::string::npos);
  EXPECT_EXIT(handleSignal(SIGSEGV), testing::ExitedWithCode(666 & 0xff), "");
  EXPECT_NE(log.errors().find("*** Segfault!!! *** "), std::string::npos);
}
