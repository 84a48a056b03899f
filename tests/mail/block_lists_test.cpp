#include "mail/block_lists.h"

#include "mail/email.h"
#include "support/panel_folder.h"

namespace {
constexpr long long kNow = 1'800'000'000;
constexpr unsigned long long kEver = ~0ULL;
}  // namespace

TEST(BlockLists, LiftedToTheSecond) {
  const std::string old = std::to_string(kNow - 3601), young = std::to_string(kNow - 3600);
  const PanelFolder panel;
  const FixedClock clock(kNow);
  for (const auto& [minutes, text, want] : Rows<unsigned long long, std::string, std::string>{
           {60, "a: " + old + "\nb: " + young + "\n", "b"},
           {60, "a:0\nb:-5\nc:\nd:x\ne:1\n", "abcd"},
           {0, "a:" + std::to_string(kNow + 1) + "\nb:" + std::to_string(kNow) + "\nc:9223372036854775807\n", "abc"},
           {0, "a:" + std::to_string(kNow - 1) + "\n", ""},
           {kEver, "a:1\n", "a"},
           {60, "a\nb:1\n", "a"}}) {
    ConfigFile list(nullptr);
    list.separator = ':';
    list.readFromString(text.c_str(), 1);
    const long long lifted = times(text, "\n") - std::ssize(want);
    EXPECT_EQ(liftOldBlocks(list, "account", minutes), lifted) << text;
    std::string left;
    for (long long i = 0; i < list.size(); ++i) left += list.getNameAt(i);
    EXPECT_EQ(left, want) << text;
  }
  EXPECT_TRUE(
      holds(panel.logs.system(), "BlockCracking: account 'e' has been removed from the block list due to age."));
}
