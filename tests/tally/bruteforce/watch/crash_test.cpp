// Scans that die or whose disk is full.
#include "tally/bruteforce/watch/brute_monitor.h"

class BruteCrash : public BruteMonitor {
 protected:
  /// Runs a scan in a child that dies as planned. Whether it got that far.
  template <class Scan>
  static bool crash(const std::string& plan, Scan scan) {
    return inAProcessOfItsOwn([&] {
             setFailPlan(plan.c_str());
             scan();
             return 0;
           }) == -1;
  }
};

TEST_F(BruteCrash, CountsNothingTwiceAndMissesNothing) {
  long long now = kNow, failures = 0;
  const auto attack = [&] { write(failure("bob", "192.0.2.1") + failure("eve", "192.0.2.2")), ++failures; };
  bool killed = true;
  int step = 0;
  for (; killed && step < 400; ++step) {
    attack();
    now += 60;
    killed = crash("*:kill:" + std::to_string(step), [&] { pass(now); });
    // The dead one's locks on data files go stale in time; that on the scan must have gone with it.
    ASSERT_EQ(std::system(("find " + panel_.path("admin") + " -name 'brute*.lock' -delete").c_str()), 0);
    if (step % 3 == 0) attack();
    pass(now += step % 2);
    ASSERT_EQ(counts("brute_ip.data"), (Counts{{"192.0.2.1", failures}, {"192.0.2.2", failures}})) << step;
    ASSERT_EQ(counts("brute_user.data"), (Counts{{"bob", failures}, {"eve", failures}})) << step;
    const auto all = keys();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(2 * failures)) << step;
    ASSERT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size()) << step;
    ASSERT_FALSE(exists(panel_.path("admin/state/brute_journal"))) << step;
  }
  EXPECT_TRUE(!killed && step > 30) << step;
}

TEST_F(BruteCrash, AKilledScanDoesNotBlockTheNext) {
  write(failure("bob", "192.0.2.1"));
  // By the clock that the lock is of.
  const auto scan = [&] { check_brute_force_logs(&panel_.conf); };
  EXPECT_TRUE(crash("brute_spool.open:kill", scan));
  EXPECT_TRUE(exists(panel_.path("admin/check_brute_force_logs.lock")));
  scan();
  EXPECT_TRUE(counted(1));
  EXPECT_FALSE(exists(panel_.path("admin/check_brute_force_logs.lock")));
}

TEST_F(BruteCrash, OutlivesAFullDisk) {
  long long now = kNow, failures = 0;
  for (const char* plan : {"safe_write.*:ENOSPC", "brute_spool.write:ENOSPC", "brute_spool.fsync:EIO",
                           "brute_entries.write:short", "brute_entries.fsync:EIO", "brute_spool.open:EDQUOT",
                           "safe_write.rename:EIO:1", "safe_write.rename:EIO:2", "safe_write.rename:EIO:3"}) {
    write(failure("bob", "192.0.2.1") + failure("bob", "192.0.2.1"));
    failures += 2;
    for (int i = 0; i < 2; ++i) failing(plan, [&] { pass(now += 60); });
    const bool told = !panel_.logs.errors().empty();
    pass(now += 60);
    EXPECT_TRUE(told) << plan;
    EXPECT_TRUE(counted(failures)) << plan;
    EXPECT_EQ(keys().size(), static_cast<std::size_t>(failures)) << plan;
  }
}
