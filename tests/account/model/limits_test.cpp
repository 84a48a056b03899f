#include "account/model/limits.h"

#include <gtest/gtest.h>

#include "account/model/account_lock.h"
#include "core/sys/privileges.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

TEST(Limits, SayWhatIsExceededAndWhatSuspends) {
  PanelFolder panel;
  const LogCapture logs;
  const struct {
    const char* name;
    const char* limits;
    const char* used;
    const char* exceeded;
    const char* reason;
    const char* reasonWithDisk;
  } cases[] = {
      {"nothing limited", "bandwidth=unlimited\nquota=\n", "bandwidth=1e12\nquota=5\nmysql=3\n", "", "", ""},
      {"at the limit", "bandwidth=100\nquota=10\n", "bandwidth=100\nquota=10\n", "", "", ""},
      {"all that is measured", "bandwidth=100\nquota=10\ninode=9\n", "bandwidth=100.5\nquota=11\ninode=10\n",
       "bandwidth quota inode ", "bandwidth", "bandwidth,quota,inode"},
      {"0 of a measure, 0 of a count", "bandwidth=0\nquota=0\nmysql=0\nftp=0\n", "bandwidth=1\nquota=1\nmysql=1\n",
       "mysql ", "", ""},
      {"what was added", "bandwidth=100\nadditional_bandwidth=50\n", "bandwidth=149\n", "", "", ""},
      {"more than was added", "bandwidth=100\nadditional_bandwidth=50\n", "bandwidth=151\n", "bandwidth ", "bandwidth",
       "bandwidth"},
      {"no limits at all", "bandwidth=-5\nquota=ten\ninode=9300000000000000000\n", "bandwidth=9\nquota=9\ninode=9\n",
       "", "", ""},
      {"no amounts", "bandwidth=1\nquota=1\n", "bandwidth=nan\nquota=inf\n", "", "", ""},
  };
  for (const auto& c : cases) {
    ConfigFile limits("/users/bob/user.conf"), used(nullptr);
    limits.readFromString(c.limits);
    used.readFromString(c.used);
    for (const int disk : {0, 1}) {
      panel.conf.disk_usage_suspend = disk;
      const auto exceeded = exceededLimits(limits, used, "bob", panel.conf);
      std::string keys;
      for (const Exceeded& one : exceeded) keys.append(one.what->key).append(" ");
      EXPECT_EQ(keys, c.exceeded) << c.name;
      EXPECT_EQ(suspensionReason(exceeded), disk ? c.reasonWithDisk : c.reason) << c.name;
    }
  }
  EXPECT_TRUE(holds(logs.errors(), "/users/bob/user.conf: quota=ten of account bob is no limit"));
  EXPECT_EQ(percentOf(5, {false, 0}), 0);
  EXPECT_EQ(percentOf(5, {false, 20}), 25);
}

TEST(AccountLock, KeepsOtherProcessesOutAndEndsWithItsHolder) {
  PanelFolder panel;
  const auto isFree = [](const char* account) {
    return inAProcessOfItsOwn([&] { return AccountLock(account, 0).held() ? 1 : 0; }) == 1;
  };
  {
    const AccountLock outer("bob", 0);
    ASSERT_TRUE(outer.held());
    {
      const AccountLock inner("bob", 0);
      EXPECT_TRUE(inner.held());
    }
    EXPECT_FALSE(isFree("bob"));
    EXPECT_TRUE(isFree("ann"));
  }
  EXPECT_TRUE(isFree("bob"));
  EXPECT_FALSE(AccountLock("../bob", 0).held());
}
