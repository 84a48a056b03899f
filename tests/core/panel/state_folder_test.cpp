#include "core/panel/state_folder.h"

#include "support/panel_folder.h"

TEST(StateFolder, IsThePanelsWhateverStandsThere) {
  const AsRoot root;
  const struct {
    const char *name, *plant;
    bool movesAway;
  } cases[] = {{"nothing", ":", false},
               {"root's folder", "mkdir $state", false},
               {"nobody's folder", "mkdir -m 777 $state; echo x >$state/planted; chown -R nobody $state", true},
               {"nobody's link", "ln -s /tmp $state; chown -h nobody $state", true},
               {"nobody's file", "echo x >$state; chown nobody $state", true}};
  for (const auto& c : cases) {
    PanelFolder panel;
    const std::string path = panel.path("admin/state");
    EXPECT_EQ(stateFile("x"), path + "/x");
    ASSERT_EQ(::system(joined("state=", path, "; ", c.plant).c_str()), 0);
    const AsUser nobody(nobodyIds());
    const Descriptor folder = openStateFolder("inner");
    EXPECT_EQ(effectiveIds(), nobodyIds()) << c.name;
    const AsRoot again;
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
  fs::create_symlink(panel.path("virtual"), panel.path("admin/state"));
  EXPECT_FALSE(openStateFolder("inner"));
  EXPECT_FALSE(exists(panel.path("virtual/inner")));
}
