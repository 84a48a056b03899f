#include "tally/bruteforce/watch/skip_list.h"

#include <gtest/gtest.h>

#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

TEST(BruteSkipList, AddressesRangesAndNames) {
  constexpr const char* kBare =
      "bob\n192.0.2.1 \n2001:DB8:0::1\n10.0.0.77/8\n172.16.5.0/30\n2001:db8:1::/48\n::/0\n198.51.100.0/33\n"
      "198.51.100.0/\n198.51.100.0/-1\n198.51.100.0/24x\n203.0.113.300/8\n*\n*.\n.\nlocalhost\n::ffff:100.64.0.0/106\n";
  const struct {
    const char* name;
    bool want;
    const char* range;
  } cases[] = {{"bob", true, nullptr},
               {"BOB", false, nullptr},
               {"192.0.2.1", true, nullptr},
               {"::ffff:192.0.2.1", true, "192.0.2.1"},
               {"2001:db8::1", true, "2001:DB8:0::1"},
               {"10.255.0.1", true, "10.0.0.77/8"},
               {"11.0.0.1", false, nullptr},
               {"172.16.5.3", true, "172.16.5.0/30"},
               {"172.16.5.4", false, nullptr},
               {"2001:db8:1:ffff::9", true, "2001:db8:1::/48"},
               {"fe80::1", true, "::/0"},
               {"198.51.100.1", false, nullptr},
               {"203.0.113.1", false, nullptr},
               {"100.127.255.255", true, "::ffff:100.64.0.0/106"},
               {"100.128.0.0", false, nullptr},
               {"", false, nullptr},
               {nullptr, false, nullptr},
               {"127.0.0.1", false, nullptr}};
  ConfigFile list(nullptr);
  list.readFromString(kBare, 1);
  SkipList skip(list);
  setDebugLevel(500);
  for (const auto& c : cases) {
    const char* shown = c.name == nullptr ? "null" : c.name;
    bool found = !c.want;
    const std::string said = printed([&] { found = skip.contains(c.name); });
    EXPECT_EQ(found, c.want) << shown;
    EXPECT_EQ(said, c.range == nullptr ? "" : joined(c.name, " is in range ", c.range, "\n")) << shown;
    EXPECT_EQ(is_in_skip_list(c.name, list), c.want ? 1 : 0) << shown;
  }
  setDebugLevel(0);
}

TEST(BruteSkipList, DomainsByDeduction) {
  const struct {
    const char* list;
    const char* domain;
  } cases[] = {
      {"", nullptr},
      {"192.0.2.1\n2001:db8::/32\n10.0.0.0/8\n", nullptr},
      {"192.0.2.1\noffice.example\n", "office.example"},
      {"192.0.2.1\n*.office.example\n", "*.office.example"},
      {"192.0.2.0/33\n", "192.0.2.0/33"},
  };
  setDebugLevel(500);
  for (const auto& c : cases) {
    ConfigFile list(nullptr);
    list.readFromString(c.list, 1);
    int found = -1;
    const std::string said = printed([&] { found = skip_list_contains_domain(list); });
    EXPECT_EQ(found, c.domain == nullptr ? 0 : 1) << c.list;
    const char* deduction = "Tally::skip_list_contains_domain: by deduction, '";
    EXPECT_EQ(said, c.domain == nullptr ? "" : joined(deduction, c.domain, "' must be a domain.\n"));
  }
  setDebugLevel(0);
}
