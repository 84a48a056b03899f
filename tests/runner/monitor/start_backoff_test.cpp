#include "runner/monitor/start_backoff.h"

#include <gtest/gtest.h>

#include <ctime>

#include "core/panel/state_folder.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {
/// A pass of the monitor in which exim is missed, and fails to start when it is tried. Whether it was let be.
bool pass() {
  StartBackoff backoff;
  const bool waits = backoff.waits("exim");
  if (!waits) backoff.failed("exim");
  return waits;
}

void turnBack(const char* failures, long long seconds) {
  PanelRecord kept(stateFile("service_starts"));
  ASSERT_TRUE(kept.readFile());
  EXPECT_TRUE(text_detail::part(kept.getValue("exim")).starts_with(failures)) << kept.getOrEmpty("exim");
  kept.setParam("exim", joined(failures, " ", std::to_string(std::time(nullptr) - seconds)).c_str());
  ASSERT_TRUE(kept.writeFile());
}
}  // namespace

TEST(StartBackoff, LetsBeInGrowingWaitsWhatFailsInARow) {
  PanelFolder panel;
  panel.conf.service_backoff = 2;
  EXPECT_FALSE(pass());
  EXPECT_FALSE(pass());
  EXPECT_TRUE(pass());
  turnBack("2", 58);
  EXPECT_FALSE(pass());
  turnBack("3", 100);
  EXPECT_TRUE(pass());
  turnBack("3", 118);
  EXPECT_FALSE(pass());
  turnBack("4", 100000);
  EXPECT_FALSE(pass());
  turnBack("5", -100000);
  EXPECT_FALSE(pass()) << "a stamp from the future holds nothing back";
  EXPECT_TRUE(pass());
  // It ran in one pass: what was before does not count.
  { const StartBackoff backoff; }
  EXPECT_FALSE(pass());
  EXPECT_FALSE(pass());
  panel.conf.service_backoff = 0;
  EXPECT_FALSE(pass());
}
