#include <gtest/gtest.h>

#include "libexec/mail_usage/mail_usage.h"

using namespace zvtaskq;

TEST(MailLines, TakesWhatIsAnEmailsAlone) {
  const std::string a = "10=type=email&method=incoming&id=1&time=5&email=a%40x.example\n", b = "2=type=email&id=2\n";
  const struct {
    const char* name;
    std::string text;
    bool isEnded;
    std::size_t most;
    std::string lines;
    std::size_t consumed;
    long long refused;
  } cases[] = {
      {"whole lines", a + b, false, std::string::npos, a + b, a.size() + b.size(), 0},
      {"one that is still written", a + "2=type=ema", false, std::string::npos, a, a.size(), 0},
      {"one that nobody will end", a + "2=type=email", true, std::string::npos, a + "2=type=email\n", a.size() + 12, 0},
      {"others' lines", "5=type=tally&time=1\n" + a + "-3=type=email\nx\n\n7=type=email\x01\n", false,
       std::string::npos, a, 0, 4},
      {"a line too long", "7=type=email&id=" + std::string(5000, 'x') + "\n" + b, false, std::string::npos, b, 0, 1},
      {"as much as was there", "x\n" + a + b, false, a.size(), a, 2 + a.size(), 1},
      {"nothing of it", a + b, true, 0, "", 0, 0},
  };
  for (const auto& c : cases) {
    const MailLines taken = takeMailLines(c.text, c.isEnded, c.most);
    EXPECT_EQ(taken.lines, c.lines) << c.name;
    EXPECT_EQ(taken.consumed, c.consumed == 0 && c.most != 0 ? c.text.size() : c.consumed) << c.name;
    EXPECT_EQ(taken.refused, c.refused) << c.name;
  }
}

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
    if (c.torn > 0) EXPECT_EQ(found.tornAt, c.tornAt) << c.name;
  }
}
