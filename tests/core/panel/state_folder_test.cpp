#include "core/panel/state_folder.h"

#include "core/panel/marks.h"
#include "support/panel_folder.h"

TEST(StateFolder, IsThePanelsWhateverStandsThere) {
  const AsRoot root;
  for (const auto& [name, plant, movesAway] : Rows<const char*, const char*, bool>{
           {"nothing", ":", false},
           {"root's folder", "mkdir $state", false},
           {"nobody's folder", "mkdir -m 777 $state; echo x >$state/planted; chown -R nobody $state", true},
           {"nobody's link", "ln -s /tmp $state; chown -h nobody $state", true},
           {"nobody's file", "echo x >$state; chown nobody $state", true}}) {
    PanelFolder panel;
    const std::string path = panel.path("admin/state");
    EXPECT_EQ(stateFile("x"), path + "/x");
    ASSERT_EQ(::system(joined("state=", path, "; ", plant).c_str()), 0);
    const AsUser nobody(nobodyIds());
    const Descriptor folder = openStateFolder("inner");
    EXPECT_EQ(effectiveIds(), nobodyIds()) << name;
    const AsRoot again;
    ASSERT_TRUE(folder) << name;
    for (const std::string& made : {path, path + "/inner"}) {
      EXPECT_TRUE(statOf(made).st_mode == (S_IFDIR | 0700) && statOf(made).st_uid == getUID(kPanelUser)) << name;
    }
    EXPECT_FALSE(exists(path + "/planted")) << name;
    EXPECT_EQ(times(panel.logs.security(), "is not used") > 0, movesAway) << name;
    EXPECT_TRUE(openStateFolder()) << name;
  }
}

TEST(StateFolder, FollowsNoLinkOfRoots) {
  PanelFolder panel;
  fs::create_symlink(panel.path("virtual"), panel.path("admin/state"));
  EXPECT_FALSE(openStateFolder("inner"));
  EXPECT_FALSE(exists(panel.path("virtual/inner")));
}

TEST(Marks, AreDueAgainAfterADayOrAboutSomethingElse) {
  const PanelFolder panel;
  const auto dueAt = [](long long now, const char* about) {
    const FixedClock clock(now);
    const AsUser nobody(nobodyIds());
    const bool due = isDueAgain("topic", about);
    EXPECT_TRUE(effectiveIds() == nobodyIds());
    return due;
  };
  EXPECT_TRUE(dueAt(1'000'000, "a"));
  EXPECT_FALSE(dueAt(1'000'000, "a"));
  EXPECT_FALSE(dueAt(1'086'399, "a"));
  EXPECT_TRUE(dueAt(1'086'400, "a"));
  EXPECT_TRUE(dueAt(1'086'401, "a b"));
  EXPECT_FALSE(dueAt(1'086'402, "a b"));
  EXPECT_EQ(panel.logs.errors(), "");
  EXPECT_TRUE(dueAt(1'086'000, "a b"));
  EXPECT_FALSE(dueAt(1'086'001, "a b"));
  EXPECT_TRUE(holds(panel.logs.errors(), "was set in the future, at 1086401, and is set anew"));
}
