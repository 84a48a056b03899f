#include "tally/bruteforce/lines/match.h"

#include "core/record/config_file.h"
#include "support/fixtures.h"
#include "tally/bruteforce/lines/address.h"

namespace {
const std::string kClassic = "Nov  3 04:05:06 server ";
constexpr const char* kNoAddress = "none";

/// The stock filters and some odd ones, tried on one line.
class BruteMatching : public ::testing::Test {
 protected:
  BruteMatching() {
    filters_.addStock();
    ConfigFile odd(nullptr);
    odd.setParam("zz1", "text=one&text2=two&text3=two&ip_after=at%20&ip_until=;");
    odd.setParam("zz2", "text=bare&ip_after=");
    filters_.add(odd);
    for (const BruteFilter& filter : filters_.all()) all_.push_back(&filter);
  }
  /// "filter/address/user/attempts", with "!" for a misplaced address and "?" for an ambiguous one; "" for no match.
  std::string match(const std::string& line, AddressChoice choice = AddressChoice::first) {
    AddressTable addresses;
    BruteMatch found;
    if (!parseLine(all_, BruteLine(line), choice, addresses, found)) return "";
    const std::string address =
        found.address == NameTable::kNone ? kNoAddress : std::string(addresses.clean().at(found.address));
    return found.filter->name + "/" + address + "/" + std::string(found.user) + "/" + std::to_string(found.attempts) +
           (found.isMisplaced ? "!" : "") + (found.isAmbiguous ? "?" : "");
  }

  BruteFilters filters_;
  std::vector<const BruteFilter*> all_;
};
}  // namespace

TEST_F(BruteMatching, RecognisesWhatTheServicesWrite) {
  for (const auto& [line, want] : Rows<std::string, const char*>{
           {kClassic + "sshd[1]: Failed keyboard-interactive/pam for a from 2001:DB8::0:1 port 2",
            "sshd3/2001:db8::1/a/1"},
           {"2026-11-03T04:05:06+01:00 server sshd[1]: Failed password for bob from ::ffff:192.0.2.1 port 22 ssh2",
            "sshd5/192.0.2.1/bob/1"},
           {"2026-11-03T04:05:06 a server sshd[1]: Failed password for bob from 192.0.2.1 port 22", ""},
           {kClassic + "sshd-session[1]: Failed password for bob from 192.0.2.1 port 22", "sshd5/192.0.2.1/bob/1"},
           {kClassic + "sshd Failed password for bob from 192.0.2.1 port 22", ""},
           {kClassic + "sshd[1]: Failed password for bob via 192.0.2.1 port", ""},
           {kClassic + "sshd[1]: Failed password for  from 192.0.2.1 port 22", "sshd5/192.0.2.1//1"},
           {kClassic +
                "dovecot: imap-login: Disconnected (auth failed, 4 attempts): user=<b@c.de>, rip=192.0.2.1, lip=::1",
            "dovecot1/192.0.2.1/b@c.de/4"},
           {kClassic + "proftpd[1]: host (a[192.0.2.1]) - Maximum login attempts (-3) exceeded",
            "proftpd3/192.0.2.1//1"},
           {kClassic + "dovecot: x (auth failed, 1 attempts in 2 secs): user=<9 attempts)>, rip=192.0.2.1, lip=::1",
            "dovecot1/192.0.2.1/9 attempts)/1"},
           {kClassic + "dovecot: x (auth failed, 99999999999999999999 attempts): user=<>, rip=192.0.2.1,",
            "dovecot1/192.0.2.1//1000000000"},
           {"one two two at 192.0.2.1;", "zz1/192.0.2.1//1"},
           {"one two at 192.0.2.1;", ""},
           {"two one at 192.0.2.1; two", ""},
           {"one two two at 192.0.2.1 ;", "zz1/192.0.2.1//1"},
           {"192.0.2.1 bare", "zz2/192.0.2.1//1"},
           {"", ""}})
    EXPECT_EQ(match(line), want) << line;
}

TEST_F(BruteMatching, IsNotLedAstrayByWhatAttackersCallThemselves) {
  const std::string named =
      kClassic + "sshd[1]: Failed password for invalid user x from 192.0.2.1 from 203.0.113.5 port 2";
  const std::string helo = "login authenticator failed for (a[192.0.2.1]b) [203.0.113.5]: 535";
  const std::string spoilt = "login authenticator failed for ([nonsense]) [203.0.113.5] [192.0.2.1]: 535";
  for (const auto& [line, choice, want] : Rows<std::string, AddressChoice, const char*>{
           {named, AddressChoice::first, "sshd4/192.0.2.1/x/1?"},
           {named, AddressChoice::last, "sshd4/203.0.113.5/x/1?"},
           {named, AddressChoice::none, "sshd4/none/x/1?"},
           {helo, AddressChoice::last, "exim1/203.0.113.5//1?"},
           {spoilt, AddressChoice::first, "exim1/203.0.113.5//1!?"},
           {spoilt, AddressChoice::last, "exim1/192.0.2.1//1!?"},
           {"login authenticator failed for ([x]) [203.0.113.5]", AddressChoice::none, "exim1/203.0.113.5//1!"},
           {"login authenticator failed for [192.0.2.256] [1.2.3]", AddressChoice::first, "exim1/none//1!"},
           {"login authenticator failed for [::1] [::1] [0:0::1]", AddressChoice::none, "exim1/::1//1"},
           {"login authenticator failed for []", AddressChoice::first, "exim1/none//1!"}})
    EXPECT_EQ(match(line, choice), want) << line;
  EXPECT_TRUE(addressChoiceOf("last") == AddressChoice::last && addressChoiceOf("skip") == AddressChoice::none);
  EXPECT_EQ(addressChoiceOf(nullptr), AddressChoice::first);
}

TEST_F(BruteMatching, LeavesOutFiltersThatCannotWork) {
  const LogCapture logs;
  ConfigFile list(nullptr);
  list.setParam("a1", "ip_after=x");
  list.setParam("a&2", "text=x");
  list.setParam("b1", "text=x&colour=red");
  BruteFilters filters;
  filters.add(list);
  ASSERT_TRUE(filters.all().size() == 1 && filters.all()[0].name == "b1");
  EXPECT_TRUE(holds(logs.errors(), "filter a&2 is left out"));
}

TEST(BruteAddress, HasOneSpelling) {
  for (const auto& [text, want] : {std::pair("[192.0.2.1]", "192.0.2.1"),
                                   {"::ffff:192.0.2.1", "192.0.2.1"},
                                   {"FE80::1%eth0", "fe80::1"},
                                   {"[2001:db8:0:0::1]", "2001:db8::1"},
                                   {"::%", "::"}}) {
    EXPECT_EQ(cleanAddress(text), want);
  }
  for (const std::string& text :
       {std::string("192.0.2.01"), std::string("192.0.2.1:22"), std::string("192.0.2.1%x"), std::string("[]"),
        std::string(), std::string("host.example"), std::string("::1\0x", 5), std::string(1000, ':')}) {
    EXPECT_EQ(cleanAddress(text), "") << text;
  }
}
