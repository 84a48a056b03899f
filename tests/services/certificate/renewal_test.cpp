#include "services/certificate/renewal.h"

#include <gtest/gtest.h>

#include "core/panel/state_folder.h"
#include "services/certificate/check.h"
#include "support/panel_folder.h"

namespace zvtaskq {
namespace {

constexpr long long kNow = 1'800'000'000;

class Certificates : public testing::Test {
 protected:
  test::PanelFolder panel_;
};

CertificateInUse lasting(long long age, long long left) {
  CertificateInUse one;
  one.isThere = one.isOurs = true;
  one.wanted = one.issuedNames = "bob.example:www.bob.example";
  one.from = kNow - age * kDay;
  one.until = kNow + left * kDay;
  return one;
}

TEST_F(Certificates, AreDue) {
  panel_.conf.letsencrypt_renewal_days = 60;
  EXPECT_FALSE(isDue(lasting(59, 31), kNow));
  EXPECT_TRUE(isDue(lasting(60, 30), kNow));
  // One that lives shorter than the setting knows must not end before.
  EXPECT_FALSE(isDue(lasting(20, 3), kNow));
  EXPECT_TRUE(isDue(lasting(28, 3), kNow));
  CertificateInUse one = lasting(1, 89);
  one.issuedNames = "bob.example";
  EXPECT_TRUE(isDue(one, kNow));
  one.isOurs = false;
  EXPECT_FALSE(isDue(one, kNow)) << "somebody put his own there";
  one = lasting(1, 364);
  one.issuedNames.clear();
  EXPECT_TRUE(isDue(one, kNow)) << "what was there before is replaced by who asks";
  one = lasting(60, -1);
  one.wanted.clear();
  EXPECT_FALSE(isDue(one, kNow)) << "nobody asks for one";
}

TEST_F(Certificates, WaitAndStages) {
  EXPECT_EQ(waitAfter(1), kDay / 2);
  EXPECT_EQ(waitAfter(3), 2 * kDay);
  EXPECT_EQ(waitAfter(2'000'000'000), kWeek);
  EXPECT_EQ(stageOf(15 * kDay), 0);
  EXPECT_EQ(stageOf(14 * kDay), 1);
  EXPECT_EQ(stageOf(1), 4);
  EXPECT_EQ(stageOf(0), 5);
}

TEST_F(Certificates, NobodyHoldsTheOthersUp) {
  std::vector<CertificateInUse> all(6);
  std::vector<const CertificateInUse*> due;
  std::string asked;
  for (std::size_t i = 0; i < all.size(); ++i) {
    all[i].account = i < 3 ? "ann" : "bob";
    due.push_back(&all[i]);
  }
  const auto ask = [&](const CertificateInUse& one, std::chrono::steady_clock::duration& took) {
    asked += std::to_string(&one - all.data());
    took = std::chrono::seconds(one.account == "ann" ? 120 : 1);
    return asked.size() < 5;
  };
  inFairTurns(due, std::chrono::seconds(100), ask);
  EXPECT_EQ(asked, "03451");
}

TEST_F(Certificates, NotesOfAnotherClock) {
  PanelRecord file(stateFile("certificates"));
  ASSERT_TRUE(openStateFolder());
  file.setParam("bob.example", "failures=3&next=1990000000&asked=1799999999,x,1700000000,1990000000");
  ASSERT_TRUE(file.writeFile());
  CertificateNotes notes;
  notes.read(kNow);
  const CertificateNote note = notes.get("bob.example");
  EXPECT_EQ(note.failures, 3);
  EXPECT_EQ(note.next, 0) << "a clock that was put back must not silence it";
  EXPECT_EQ(note.asked, std::vector<long long>{1799999999});
}

}  // namespace
}  // namespace zvtaskq
