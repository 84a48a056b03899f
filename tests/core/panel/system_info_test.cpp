#include "core/panel/system_info.h"

#include "support/fixtures.h"

TEST(SystemInfo, Answers) {
  EXPECT_EQ(resolveIPv4("127.0.0.1"), "127.0.0.1");
  EXPECT_EQ(resolveIPv4("localhost"), "127.0.0.1");
  EXPECT_EQ(resolveIPv4("-s"), "");
  EXPECT_EQ(resolveIPv4("a b"), "");
  EXPECT_EQ(getHostName().find('\n'), std::string::npos);
  double one = -1, five = -1, fifteen = -1;
  EXPECT_EQ(getLoadAverage(one, five, fifteen), 1);
  EXPECT_GE(fifteen, 0);
}
