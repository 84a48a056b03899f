#include "tally/bruteforce/records/counts.h"

#include <gtest/gtest.h>
#include <string>

using namespace zvtaskq;

TEST(BruteUserKey, CannotBreakARecord) {
  const struct {
    std::string user;
    const char* want;
  } cases[] = {
      {"bob@c.de", "bob@c.de"},
      {"a=b&c", "a%3Db&amp;c"},
      {"<b>'\"", "&lt;b&gt;&#39;&quot;"},
      {"a b\n\x01\x7f", "a%20b%0A%01%7F"},
      {"#x%+", "%23x%25%2B"},
      {"\xc3\xa4", "\xc3\xa4"},
  };
  std::string room;
  for (const auto& c : cases) EXPECT_EQ(bruteUserKey(c.user, room), c.want);
  EXPECT_EQ(bruteUserKey(std::string(9000, 'x'), room).size(), 256U);
}
