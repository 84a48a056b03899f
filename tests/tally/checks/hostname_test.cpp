#include "tally/checks/hostname.h"

#include "support/fixtures.h"

TEST(HostName, FindingsOfTheNameAndOfTheAddressAreJoined) {
  const auto known = [] { return std::string("192.0.2.10"); };
  EXPECT_EQ(hostNameFindings({"a.example", "a.example", "198.51.100.1", known}), "");
  const std::string mismatch = hostNameFindings({"a.example", "b.example", "127.0.0.1", [] { return std::string(); }});
  EXPECT_TRUE(mismatch.starts_with("Your hostname, a.example, and the servername"));
  EXPECT_TRUE(holds(mismatch, "hostname\n\nUnable to determine the server's ip."));
  const std::string both = hostNameFindings({"", "b.example", "", known});
  EXPECT_TRUE(both.starts_with("Cannot find your hostname using the command '/bin/hostname --fqdn'. Please check"));
  EXPECT_TRUE(holds(both, "use 127.0.0.1Unable to resolve your hostname, .  This will"));
}
