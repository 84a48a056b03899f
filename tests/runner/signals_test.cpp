#include "runner/signals.h"

#include "support/fixtures.h"

TEST(Signals, AnswersEachInItsWords) {
  LogCapture log;
  handleSignal(SIGHUP);
  EXPECT_TRUE(holds(log.errors(), "] Bad Signal 1\n"));
  EXPECT_EXIT(handleSignal(SIGSEGV), testing::ExitedWithCode(666 & 0xff), "");
  EXPECT_TRUE(holds(log.errors(), "*** Segfault!!! *** "));
}
