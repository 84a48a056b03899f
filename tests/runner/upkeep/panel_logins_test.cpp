#include "runner/upkeep/panel_logins.h"

#include "support/panel_folder.h"

namespace {
constexpr long long kNow = 1'800'000'000;

/// A time that many seconds ago.
std::string ago(long long seconds) {
  return std::to_string(kNow - seconds);
}

class Cleanups : public ::testing::Test {
 protected:
  Cleanups() {
    panel_.conf.lost_password = true;
    panel_.conf.bruteforce = 1;
    panel_.conf.brute_force_time_limit = 1200;
    panel_.conf.clear_blacklist_ip_time = 10;
    panel_.conf.ip_blacklist = panel_.path(blacklist_).c_str();
  }
  PanelFolder panel_;
  FixedClock clock_{kNow};
  const char *history_ = "admin/login.hist", *requests_ = "admin/lost_password_request.txt",
             *blacklist_ = "admin/ip_blacklist";
};
}  // namespace

TEST_F(Cleanups, KeepAndDropToTheSecond) {
  for (const auto& [name, file, pass, before, after] :
       Rows<const char*, const char*, void (*)(), std::string, std::string>{
           {"log-ins", history_, clearOldLoginAttempts,
            "a=date=" + ago(1200) + "&ip=192.0.2.1\nb=date=" + ago(1201) + "\nc=ip=192.0.2.2\nd=date=" + ago(-60) +
                "\ne=date=x\nf=\n",
            "a=date=" + ago(1200) + "&ip=192.0.2.1\nd=date=" + ago(-60) + "\n"},
           {"ages wrap at 32 bits", history_, clearOldLoginAttempts,
            "a=date=" + ago(1LL << 32) + "\nb=date=" + ago((1LL << 31) + 5) + "\nc=date=-9223372036854775808\n",
            "a=date=" + ago(1LL << 32) + "\nb=date=" + ago((1LL << 31) + 5) + "\n"},
           {"requests", requests_, clearOldPasswordResetRequests,
            "a=time=" + ago(7200) + "\nb=time=" + ago(7201) + "\nc=user=bob\nd=time=-5\ne=time=-9223372036854775808\n" +
                "f=time=" + ago(1LL << 32) + "\n",
            "a=time=" + ago(7200) + "\n"},
           {"blacklist", blacklist_, clear_old_blacklisted_ips,
            "192.0.2.1=" + ago(600) + "\n192.0.2.2=" + ago(601) +
                "\n192.0.2.3=0\n192.0.2.4=\n192.0.2.5\n192.0.2.6=x\n" + "192.0.2.7=9223372036854775807\n192.0.2.8=-5\n",
            "192.0.2.1=" + ago(600) +
                "\n192.0.2.3=0\n192.0.2.4=\n192.0.2.5=\n192.0.2.6=x\n192.0.2.7=9223372036854775807\n"},
           {"blacklist without anything old stays as it is", blacklist_, clear_old_blacklisted_ips,
            "192.0.2.9\n192.0.2.1=0\n", "192.0.2.9\n192.0.2.1=0\n"}}) {
    panel_.put(file, before);
    pass();
    EXPECT_EQ(contentOf(panel_.path(file)), after) << name;
    EXPECT_FALSE(exists(panel_.path(joined(file, ".lock")))) << name;
  }
  EXPECT_EQ(panel_.logs.errors(), "");
}

TEST_F(Cleanups, KnowRequestsAfterTheLastSecondOfThirtyTwoBits) {
  const FixedClock later(2'200'000'000);
  panel_.put(requests_, "a=user=bob\nb=time=2199999999\n");
  clearOldPasswordResetRequests();
  EXPECT_EQ(contentOf(panel_.path(requests_)), "b=time=2199999999\n");
}
