#include "core/sys/privileges.h"

#include "support/fixtures.h"

namespace zvtaskq {
namespace {
using test::holds;
using test::LogCapture;

/// Starts, as a step does, at nobody.
class Guards : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(setNoPriv(), 1); }
  void TearDown() override { ASSERT_TRUE(switchEffective(kRootIds)); }

  LogCapture logs_;
};

/// What an early return, an exception and the plain end of a block have in common: the guards below it go.
enum class Way { end, leave, fall };

void innermost(Way way) {
  const AsRoot root;
  EXPECT_TRUE(root.taken() && effectiveIds() == kRootIds);
  const AsOwner nobodys(nullptr, nullptr);
  EXPECT_TRUE(effectiveIds() == kRootIds);
  if (way == Way::leave) return;
  if (way == Way::fall) throw 1;
  const AsOwner owner("daemon", kPanelUser);
  EXPECT_TRUE(effectiveIds() == (Ids{getUID("daemon"), getGID(kPanelUser, 0)}));
}
}  // namespace

TEST_F(Guards, NestAndGiveBackWhatTheyFound) {
  for (const Way way : {Way::end, Way::leave, Way::fall}) {
    {
      const AsUser user("daemon");
      EXPECT_TRUE(user.taken() && effectiveIds() == idsOf("daemon"));
      {
        const AsUser panel(kPanelUser);
        try {
          innermost(way);
        } catch (int) {
        }
        EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
      }
      EXPECT_TRUE(effectiveIds() == idsOf("daemon"));
    }
    EXPECT_TRUE(effectiveIds() == nobodyIds());
  }
}

TEST_F(Guards, AFailedSwitchIsNobodyForItsBlock) {
  const AsUser panel(kPanelUser);
  {
    const AsUser unknown("no-such-user");
    EXPECT_FALSE(unknown.taken());
    EXPECT_TRUE(effectiveIds() == nobodyIds());
    const AsRoot root;
    EXPECT_TRUE(root.taken());
  }
  EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
  EXPECT_TRUE(holds(logs_.errors(), "Sys:setUserPriv(no-such-user):uid==9999"));
  {
    const AsRoot root;
    const AsUser refused(Ids{static_cast<uid_t>(-1), 0});
    EXPECT_FALSE(refused.taken());
    EXPECT_TRUE(effectiveIds() == nobodyIds());
  }
  EXPECT_TRUE(effectiveIds() == idsOf(kPanelUser));
  EXPECT_TRUE(holds(logs_.errors(), "Unable to switch to uid "));
}

TEST_F(Guards, AProcessThatCannotDropRootLeaves) {
  EXPECT_EXIT(
      {
        const AsRoot root;
        setFailPlan("identity.seteuid:EPERM");
        { const AsUser daemon("daemon"); }
        ::_exit(0);
      },
      testing::ExitedWithCode(1), "");
}

}  // namespace zvtaskq
