#include "core/panel/marks.h"

#include "support/panel_folder.h"

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
