#include "notify/old_messages.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "core/sys/fail_point.h"
#include "core/sys/privileges.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

constexpr long long kDay = 86400;

class OldMessages : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"tickets/000", "tickets/001", "users/bob", "users/carol"}) panel_.makeFolder(name);
    panel_.conf.ticketsdir = panel_.path("tickets").c_str();
    panel_.conf.userdata = panel_.path("users").c_str();
    panel_.conf.delete_messages_days = 30;
    panel_.conf.delete_tickets_days = 90;
  }
  void TearDown() override { setFailPlan(nullptr); }

  void give(const std::string& path, long long days) {
    const timespec when[2] = {{std::time(nullptr) - days * kDay, 0}, {std::time(nullptr) - days * kDay, 0}};
    EXPECT_EQ(::chown(path.c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), when, 0), 0);
  }
  void store(int number, const char* type, long long days) {
    const std::string folder = folderOf(number);
    std::filesystem::create_directories(folder);
    writeText(folder + "/001.msg", "text");
    writeText(folder + "/001.conf", std::string("type=") + type + "\n");
    give(folder + "/001.msg", days);
    give(folder + "/001.conf", days + 1);
    give(folder, 0);
  }
  void answer(int number, long long days) {
    std::filesystem::create_directories(folderOf(number));
    writeText(folderOf(number) + "/002.msg", "text");
    give(folderOf(number) + "/002.msg", days);
  }
  void list(const std::string& name, const std::string& entries) {
    writeText(panel_.path(name), entries);
    give(panel_.path(name), 0);
  }
  std::string folderOf(int number) const {
    char name[32];
    std::snprintf(name, sizeof name, "/%.3d/%.3d", number / 1000, number);
    return panel_.path("tickets") + name;
  }

  PanelFolder panel_;
};

TEST_F(OldMessages, GoByTypeAndAgeAndTheirFoldersWithTheLastList) {
  const struct {
    int number;
    const char* type;
    long long days;
    bool named, stays, folderStays;
  } cases[] = {
      {1, "message", 31, true, false, false}, {2, "message", 29, true, true, true},
      {3, "ticket", 31, true, true, true},    {4, "ticket", 91, true, false, false},
      {5, "message", -9, true, true, true},   {6, "message", 31, false, false, false},
      {7, "ticket", 31, false, false, true},  {1008, "message", 31, false, false, false},
  };
  std::string entries = "000000099=type=message&new=yes\nodd=type=message\n";
  // In whichever order a folder is read.
  answer(9, 2);
  for (const int number : {9, 10}) store(number, "ticket", 91);
  answer(10, 2);
  for (const auto& c : cases) {
    store(c.number, c.type, c.days);
    char line[64];
    std::snprintf(line, sizeof line, "%.9d=type=%s&new=yes\n", c.number, c.type);
    if (c.named) entries += line;
  }
  list("users/bob/tickets.list", entries);
  list("admin/tickets.list", "000000001=type=message&new=yes\n");
  EXPECT_EQ(removeOldMessages("bob"), 1);
  EXPECT_EQ(removeOldMessages("carol"), 1);
  EXPECT_TRUE(exists(folderOf(1)));
  EXPECT_EQ(removeOldMessages(kPanelUser), 1);
  const std::string kept = contentOf(panel_.path("users/bob/tickets.list"));
  for (const auto& c : cases) {
    EXPECT_EQ(kept.find("00000000" + std::to_string(c.number) + "=") != std::string::npos, c.stays) << c.number;
    EXPECT_EQ(exists(folderOf(c.number)), c.folderStays) << c.number;
  }
  EXPECT_TRUE(exists(folderOf(9)) && exists(folderOf(10)));
  EXPECT_TRUE(holds(kept, "odd="));
  EXPECT_EQ(contentOf(panel_.path("admin/tickets.list")), "");
}

TEST_F(OldMessages, OfADamagedListAndThroughLinksNothingGoes) {
  store(1, "message", 31);
  panel_.makeFolder("elsewhere");
  writeText(panel_.path("elsewhere/001.msg"), "canary");
  give(panel_.path("elsewhere/001.msg"), 99);
  std::filesystem::create_directory_symlink(panel_.path("elsewhere"), folderOf(2));
  ASSERT_EQ(::mkfifo(panel_.path("users/bob/tickets.list").c_str(), 0600), 0);
  EXPECT_EQ(removeOldMessages("bob"), 0);
  EXPECT_TRUE(holds(panel_.logs.errors(), "users/bob/tickets.list: "));
  setFailPlan("old_messages.unlink:EIO:1");
  EXPECT_EQ(removeOldMessages(kPanelUser), 0);
  EXPECT_TRUE(exists(folderOf(1) + "/001.msg"));
  setFailPlan(nullptr);
  EXPECT_EQ(removeOldMessages(kPanelUser), 1);
  EXPECT_FALSE(exists(folderOf(1)));
  EXPECT_EQ(contentOf(panel_.path("elsewhere/001.msg")), "canary");
}

}  // namespace
