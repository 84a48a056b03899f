#include <gtest/gtest.h>

#include "libexec/mail_usage/mail_usage.h"

using namespace zvtaskq;

TEST(MailLines, FindsWhatAKilledRunWrote) {
  const std::string one = "10=type=email&id=1\n", two = "12=type=email&id=2\n", block = one + two,
                    other = "10=type=ftp\n";
  const struct {
    const char* name;
    std::string added;
    std::size_t whole, tornAt, torn;
  } cases[] = {
      {"nothing", "", 0, 0, 0},
      {"others' lines alone", other, 0, 0, 0},
      {"all", block, block.size(), block.size(), 0},
      {"all between others", "\n" + other + block + other, block.size(), 1 + other.size() + block.size(), 0},
      {"cut short", other + one + "12=ty", one.size(), other.size() + one.size(), 5},
      {"cut short, ended by another", one + "12=ty\n" + other, one.size(), one.size(), 5},
      {"the first line cut short", other + "10=type=em\n" + other, 0, other.size(), 10},
      {"whole lines alone", one + other, one.size(), one.size(), 0},
  };
  for (const auto& c : cases) {
    const Written found = findWritten(c.added, block);
    EXPECT_EQ(found.whole, c.whole) << c.name;
    EXPECT_EQ(found.torn, c.torn) << c.name;
    EXPECT_TRUE(c.torn == 0 || found.tornAt == c.tornAt) << c.name;
  }
}
