#include "core/panel/state_folder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/sys/identity.h"
#include "core/sys/privileges.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

TEST(StateFolder, IsThePanelsWhateverStandsThere) {
  const struct {
    const char* name;
    void (*plant)(const std::string& path);
    bool movesAway;
  } cases[] = {
      {"nothing", [](const std::string&) {}, false},
      {"root's folder",
       [](const std::string& path) {
         const AsRoot root;
         ::mkdir(path.c_str(), 0755);
       },
       false},
      {"nobody's folder",
       [](const std::string& path) { ::mkdir(path.c_str(), 0777), writeText(path + "/planted", "x"); }, true},
      {"nobody's link", [](const std::string& path) { ASSERT_EQ(::symlink("/tmp", path.c_str()), 0); }, true},
      {"nobody's file", [](const std::string& path) { writeText(path, "x"); }, true},
  };
  for (const auto& c : cases) {
    PanelFolder panel;
    const std::string path = panel.path("admin/state");
    EXPECT_EQ(stateFile("x"), path + "/x");
    const AsUser nobody(nobodyIds());
    c.plant(path);
    const Descriptor folder = openStateFolder("inner");
    EXPECT_EQ(effectiveIds(), nobodyIds()) << c.name;
    const AsRoot root;
    ASSERT_TRUE(folder) << c.name;
    for (const std::string& made : {path, path + "/inner"}) {
      struct stat what {};
      ASSERT_EQ(::lstat(made.c_str(), &what), 0) << c.name;
      EXPECT_EQ(what.st_mode, S_IFDIR | 0700U) << c.name;
      EXPECT_EQ(what.st_uid, getUID(kPanelUser)) << c.name;
    }
    EXPECT_FALSE(exists(path + "/planted")) << c.name;
    EXPECT_EQ(panel.logs.security().find("is not used") != std::string::npos, c.movesAway) << c.name;
    EXPECT_TRUE(openStateFolder()) << c.name;
  }
}

TEST(StateFolder, FollowsNoLinkOfRoots) {
  PanelFolder panel;
  std::filesystem::create_symlink(panel.path("virtual"), panel.path("admin/state"));
  EXPECT_FALSE(openStateFolder("inner"));
  EXPECT_FALSE(exists(panel.path("virtual/inner")));
}
