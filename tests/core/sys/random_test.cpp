#include "core/sys/random.h"

#include "support/fixtures.h"

TEST(Random, IsEvenAndWithinItsBounds) {
  int counts[6] = {};
  for (int i = 0; i < 60000; ++i) {
    const int number = getRandNumber(-2, 3, i % 100 == 0);
    ASSERT_TRUE(number >= -2 && number <= 3);
    ++counts[number + 2];
  }
  for (int count : counts) EXPECT_NEAR(count, 10000, 600);
  EXPECT_EQ(getRandNumber(5, 5), 5);
  EXPECT_EQ(getRandNumber(5, 4), 5);
  bool high = false, low = false;
  for (int i = 0; i < 200; ++i) (getRandNumber(INT_MIN, INT_MAX) > 0 ? high : low) = true;
  EXPECT_TRUE(high && low);
  EXPECT_NE(getRandText(20), getRandText(20));
}
