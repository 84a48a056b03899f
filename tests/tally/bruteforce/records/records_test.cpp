#include "tally/bruteforce/records/records.h"

#include "support/panel_folder.h"
#include "tally/bruteforce/records/counts.h"

TEST(BruteRecords, TheWeakestMakesRoom) {
  PanelFolder panel;
  panel.conf.clear_brute_log_time = 0;
  ConfigFile counts(nullptr);
  for (long long i = 0; i < kMostBruteNames; ++i) {
    counts.setParam(joined("made-up", std::to_string(i)).c_str(), i == 700'000 ? "last_entry=1&sshd5=9"
                                                                  : i == 7     ? "last_entry=4&x=1"
                                                                               : "last_entry=5&x=1");
  }
  NameTable names;
  BruteCounts failures;
  bool isNew = false;
  failures.of(names.add("attacker"), 0, isNew).failures = 3;
  failures.of(names.add("made-up9"), 0, isNew).failures = 1;
  failures.of(names.add("another"), 0, isNew).failures = 1;
  const std::vector<std::string> filters{"sshd5"};
  mergeBruteCounts(panel.conf, {names, failures, filters, 6}, counts);
  EXPECT_EQ(counts.size(), kMostBruteNames);
  EXPECT_STREQ(counts.getValue("attacker"), "first_entry=6&last_entry=6&sshd5=3");
  EXPECT_STREQ(counts.getValue("another"), "first_entry=6&last_entry=6&sshd5=1");
  EXPECT_STREQ(counts.getValue("made-up9"), "last_entry=6&sshd5=1&x=1");
  EXPECT_TRUE(counts.existsParam("made-up700000"));
  EXPECT_FALSE(counts.existsParam("made-up7"));
  EXPECT_TRUE(holds(panel.logs.errors(), "the 2 with the fewest failures are dropped"));
}

TEST(BruteUserKey, CannotBreakARecord) {
  std::string room;
  for (const auto& [user, want] : {std::pair("bob@c.de", "bob@c.de"),
                                   {"a=b&c", "a%3Db&amp;c"},
                                   {"<b>'\"", "&lt;b&gt;&#39;&quot;"},
                                   {"a b\n\x01\x7f", "a%20b%0A%01%7F"},
                                   {"#x%+", "%23x%25%2B"},
                                   {"\xc3\xa4", "\xc3\xa4"}}) {
    EXPECT_EQ(bruteUserKey(user, room), want);
  }
  EXPECT_EQ(bruteUserKey(std::string(9000, 'x'), room).size(), 256U);
}
