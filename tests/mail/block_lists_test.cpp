#include "mail/block_lists.h"

#include "mail/email.h"
#include "support/panel_folder.h"

namespace {
constexpr long long kNow = 1'800'000'000;
constexpr unsigned long long kEver = ~0ULL;
}  // namespace

TEST(BlockLists, LiftedToTheSecond) {
  const std::string old = std::to_string(kNow - 3601), young = std::to_string(kNow - 3600);
  const struct {
    const char* name;
    unsigned long long minutes;
    std::string list;
    const char* left;
  } cases[] = {{"older than an hour", 60, "a: " + old + "\nb: " + young + "\n", "b"},
               {"without a time", 60, "a:0\nb:-5\nc:\nd:x\ne:1\n", "abcd"},
               {"from the future", 0,
                "a:" + std::to_string(kNow + 1) + "\nb:" + std::to_string(kNow) + "\nc:9223372036854775807\n", "abc"},
               {"at once", 0, "a:" + std::to_string(kNow - 1) + "\n", ""},
               {"never", kEver, "a:1\n", "a"},
               {"bare", 60, "a\nb:1\n", "a"}};
  const PanelFolder panel;
  const FixedClock clock(kNow);
  for (const auto& c : cases) {
    ConfigFile list(nullptr);
    list.separator = ':';
    list.readFromString(c.list.c_str(), 1);
    const long long before = list.size();
    const long long lifted = liftOldBlocks(list, "account", c.minutes);
    std::string left;
    for (long long i = 0; i < list.size(); ++i) left += list.getNameAt(i);
    EXPECT_EQ(left, c.left) << c.name;
    EXPECT_EQ(lifted, before - list.size()) << c.name;
  }
  EXPECT_TRUE(
      holds(panel.logs.system(), "BlockCracking: account 'e' has been removed from the block list due to age."));
}
