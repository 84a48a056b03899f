#include "tally/checks/hostname.h"

#include <gtest/gtest.h>

using namespace zvtaskq;

TEST(HostName, Findings) {
  const auto known = [] { return std::string("192.0.2.10"); };
  const std::string advice =
      "\n\nSolution:\n\nCreate an A record for your hostname (a.example.) in your DNS control panel.";
  const struct {
    const char* name;
    HostNameFacts facts;
    std::string want;
  } cases[] = {
      {"another address is not looked at", {"a.example", "a.example", "198.51.100.1", known}, ""},
      {"unresolved",
       {"a.example", "a.example", "", known},
       "Unable to resolve your hostname, a.example.  This will cause major issues when sending email." + advice},
      {"loopback",
       {"a.example", "a.example", "127.0.0.1", known},
       "a.example, resolves to 127.0.0.1.  Please make sure that your hostname resolves to your server ip (192.0.2.10) "
       "or else your email may not work correctly." +
           advice},
  };
  for (const auto& c : cases) {
    const std::string found = hostNameFindings(c.facts);
    EXPECT_TRUE(found.starts_with(c.want) && found.empty() == c.want.empty()) << c.name << found;
  }

  // The other findings of the name are joined with those of the address too.
  const std::string mismatch = hostNameFindings({"a.example", "b.example", "127.0.0.1", [] { return std::string(); }});
  EXPECT_EQ(mismatch.find("Your hostname, a.example, and the servername"), 0U);
  EXPECT_NE(mismatch.find("hostname\n\nUnable to determine the server's ip."), std::string::npos) << mismatch;

  const std::string both = hostNameFindings({"", "b.example", "", known});
  EXPECT_EQ(both.find("Cannot find your hostname using the command '/bin/hostname --fqdn'. Please check"), 0U);
  EXPECT_NE(both.find("use 127.0.0.1Unable to resolve your hostname, .  This will"), std::string::npos);
}
