#include "tally/bruteforce/watch/skip_list.h"

#include "core/record/config_file.h"
#include "support/fixtures.h"

TEST(BruteSkipList, AddressesRangesAndNames) {
  constexpr const char* kBare =
      "bob\n192.0.2.1 \n2001:DB8:0::1\n10.0.0.77/8\n172.16.5.0/30\n2001:db8:1::/48\n::/0\n198.51.100.0/33\n"
      "198.51.100.0/\n198.51.100.0/-1\n198.51.100.0/24x\n203.0.113.300/8\n*\n*.\n.\nlocalhost\n::ffff:100.64.0.0/106\n";
  ConfigFile list(nullptr);
  list.readFromString(kBare, 1);
  SkipList skip(list);
  for (const auto& [name, range] : {std::pair("bob", ""),
                                    {"192.0.2.1", ""},
                                    {"::ffff:192.0.2.1", "192.0.2.1"},
                                    {"2001:db8::1", "2001:DB8:0::1"},
                                    {"10.255.0.1", "10.0.0.77/8"},
                                    {"172.16.5.3", "172.16.5.0/30"},
                                    {"2001:db8:1:ffff::9", "2001:db8:1::/48"},
                                    {"fe80::1", "::/0"},
                                    {"100.127.255.255", "::ffff:100.64.0.0/106"}}) {
    const char* one = name;
    const std::string said = printed([&] { EXPECT_TRUE(skip.contains(one)) << one; }, 500);
    EXPECT_EQ(said, *range == '\0' ? "" : joined(name, " is in range ", range, "\n"));
    EXPECT_EQ(is_in_skip_list(name, list), 1) << name;
  }
  for (const char* name : {"BOB", "11.0.0.1", "172.16.5.4", "198.51.100.1", "203.0.113.1", "100.128.0.0", "127.0.0.1",
                           "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(printed([&] { EXPECT_FALSE(skip.contains(name)); }, 500), "");
    EXPECT_EQ(is_in_skip_list(name, list), 0);
  }
}
