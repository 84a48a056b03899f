#include "core/sys/privileges.h"

#include "support/fixtures.h"

namespace {
/// Starts, as a step does, at nobody.
class Guards : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(setNoPriv(), 1); }
  void TearDown() override { ASSERT_TRUE(switchEffective(kRootIds)); }

  LogCapture logs_;
};
}  // namespace

TEST_F(Guards, NestAndGiveBackWhatTheyFound) {
  {
    const AsUser user("daemon");
    EXPECT_TRUE(user.taken() && effectiveIds() == idsOf("daemon"));
    {
      const AsUser panel(kPanelUser);
      {
        const AsRoot root;
        EXPECT_TRUE(root.taken() && effectiveIds() == kRootIds);
        const AsOwner nobodys(nullptr, nullptr);
        EXPECT_TRUE(effectiveIds() == kRootIds);
        const AsOwner owner("daemon", kPanelUser);
        EXPECT_TRUE(effectiveIds() == (Ids{getUID("daemon"), getGID(kPanelUser, 0)}));
      }
      EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
    }
    EXPECT_TRUE(effectiveIds() == idsOf("daemon"));
  }
  EXPECT_TRUE(effectiveIds() == nobodyIds());
}

TEST_F(Guards, AFailedSwitchIsNobodyForItsBlock) {
  const AsUser panel(kPanelUser);
  {
    const AsUser unknown("no-such-user");
    EXPECT_TRUE(!unknown.taken() && effectiveIds() == nobodyIds());
    const AsRoot root;
    EXPECT_TRUE(root.taken());
  }
  EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
  EXPECT_TRUE(holds(logs_.errors(), "Sys:setUserPriv(no-such-user):uid==9999"));
  {
    const AsRoot root;
    const AsUser refused(Ids{static_cast<uid_t>(-1), 0});
    EXPECT_TRUE(!refused.taken() && effectiveIds() == nobodyIds());
  }
  EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
  EXPECT_TRUE(holds(logs_.errors(), "Unable to switch to uid "));
}

TEST_F(Guards, AProcessThatCannotDropRootLeaves) {
  EXPECT_EXIT(
      {
        const AsRoot root;
        failing("identity.seteuid:EPERM", [] { const AsUser daemon("daemon"); });
        ::_exit(0);
      },
      testing::ExitedWithCode(1), "");
}
