// Zones as text: what is read of them, what an account may put into them, how the template and its records meet.
#include "services/dns/record_rules.h"
#include "services/dns/zone_serial.h"
#include "services/dns/zone_template.h"
#include "services/dns/zone_text.h"
#include "support/panel_folder.h"

namespace {

constexpr const char* kMade =
    "$TTL 14400\n@\tIN\tSOA\tns1.x. h.x. 7 1 2 3 4\n@\tIN\tNS\tns1.x.\n@\tIN\tA\t192.0.2.1\nwww\tIN\tA\t192.0.2.1\n"
    "@\tIN\tMX\t10 mail\n@\tIN\tTXT\t\"v=spf1 a ~all\"\n";

std::string records(std::string_view text) {
  std::vector<ZoneRecord> all;
  Text why;
  if (!readZone(text, "bob.example", all, why)) return why.orEmpty();
  std::string lines;
  for (const ZoneRecord& record : all) {
    lines += joined(record.name, " ", std::to_string(record.ttl), " ", record.type, " ", record.dataText(), ";");
  }
  return lines;
}

TEST(ZoneRecords, AreReadAsNameServersReadThem) {
  for (const auto& [name, text, want] : Rows<const char*, std::string, const char*>{
           {"owner, times and class in any order",
            "$TTL 1h\nWWW 5m IN A 192.0.2.1\n IN 300 A 192.0.2.2\n\n\tA 192.0.2.3 ; it\n",
            "www 300 A 192.0.2.1;www 300 A 192.0.2.2;www -1 A 192.0.2.3;"},
           {"several lines, quotes", "@ SOA ns. h. ( 5 ; serial\n 1 2\n 3 4 )\nt TXT \"a;b (\\\" c\" d\n",
            "@ -1 SOA ns. h. 5 1 2 3 4;t -1 TXT \"a;b (\\\" c\" d;"},
           {"absolute names and origins",
            "bob.example. A 192.0.2.1\n$ORIGIN sub.bob.example.\n@ A 192.0.2.2\nx MX 5 y\n*.z.Bob.Example. CNAME k.\n",
            "@ -1 A 192.0.2.1;sub -1 A 192.0.2.2;x.sub -1 MX 5 y.sub.bob.example.;*.z -1 CNAME k.;"},
           {"no other files", "a A 192.0.2.1\n$INCLUDE /etc/passwd\n", "line 2: $INCLUDE is not taken<br>\n"},
           {"no others' names", "evil.example. A 192.0.2.1\n", "line 1: evil.example. is not in the zone<br>\n"},
           {"nor a name that only looks like one", "xbob.example. A 192.0.2.1\n",
            "line 1: xbob.example. is not in the zone<br>\n"},
           {"open quote", "a TXT \"b\n", "line 1: a control character<br>\n"},
           {"open quote at the end", "a TXT \"b", "line 1: a quote that is not closed<br>\n"},
           {"a line feed behind a backslash", "a TXT \"b\\\n$INCLUDE x\"\n", "line 1: a control character<br>\n"},
           {"open parenthesis", "a TXT ( b\n", "line 1: a parenthesis that is not closed<br>\n"},
           {"null byte", std::string("a TXT b\0c\n", 10), "line 1: a control character<br>\n"},
           {"another class", "a CH TXT b\n", "line 1: the class CH<br>\n"}}) {
    EXPECT_EQ(records(text), want) << name;
  }
}

TEST(ZoneRecords, OfAnAccountStayInTheirPlace) {
  Config conf(nullptr);
  Config open(nullptr);
  open.allow_dns_underscore = open.full_mx_records = true;
  for (const auto& [line, isFine, isFineOpen] :
       Rows<std::string, bool, bool>{{"www A 192.0.2.1", true, true},
                                     {"www A 192.0.2.1;}", true, true},  // what is behind ";" is a comment
                                     {"www A 192.0.2.256", false, false},
                                     {"www A $INCLUDE", false, false},
                                     {"www AAAA 2001:db8::1", true, true},
                                     {"a_b A 192.0.2.1", false, true},
                                     {"_dmarc TXT \"v=DMARC1; p=none\"", true, true},
                                     {"*.x CNAME y.example.", true, true},
                                     {"a*b A 192.0.2.1", false, false},
                                     {"@ MX 10 mail", true, true},
                                     {"sub MX 10 mail", false, true},
                                     {"@ MX 70000 mail", false, false},
                                     {"_sip._tcp SRV 1 2 3 host", true, true},
                                     {"@ CAA 0 issue \"ca.example\"", true, true},
                                     {"@ SOA a. b. 1 2 3 4 5", false, false},
                                     {"_443._tcp TLSA 3 1 1 ab12", true, true},
                                     {"x HINFO a} b{", false, false},
                                     {"../x A 192.0.2.1", false, false}}) {
    std::vector<ZoneRecord> all;
    Text why;
    ASSERT_TRUE(readZone(line + "\n", "bob.example", all, why)) << line << why.orEmpty();
    EXPECT_EQ(whyRefused(all.front(), conf).empty(), isFine) << line;
    EXPECT_EQ(whyRefused(all.front(), open).empty(), isFineOpen) << line;
  }
  EXPECT_EQ(quoted(std::string(300, 'x'), true),
            joined("\"", std::string(255, 'x'), "\" \"", std::string(45, 'x'), "\""));
  EXPECT_EQ(quoted("a\"\\", false), "\"a\\\"\\\\\"");
}

TEST(ZoneText, KeepsTheAccountsOwnRecords) {
  Config conf(nullptr);
  conf.wrap_long_dns_values = true;
  conf.allow_ttl_override = false;
  const auto compose = [&](const std::string& present) {
    PresentZone zone;
    std::string text;
    std::vector<RefusedRecord> refused;
    Text why;
    EXPECT_TRUE(readPresentZone(present, "bob.example", zone, why)) << why.orEmpty();
    EXPECT_TRUE(composeZone("bob.example", kMade, zone, conf, text, refused, why)) << why.orEmpty();
    for (const RefusedRecord& one : refused) text += joined("REFUSED ", one.record);
    return text;
  };
  const auto behind = [](const std::string& text, std::string_view mark) {
    const std::size_t at = text.find(mark);
    return at == std::string::npos ? "" : text.substr(text.find('\n', at) + 1);
  };
  // Somebody else's zone: its addresses of our hosts are another server's, what else differs was chosen.
  const std::string taken = compose(
      "@ SOA o. h. 9 1 2 3 4\n@ NS o.\n@ A 198.51.100.1\nwww 60 A 198.51.100.1\nx 60 A 192.0.2.9\n@ MX 5 mx.o.\n"
      "@ TXT google=1\n@ RRSIG A 1 2 3\nx A 192.0.2.9\n");
  EXPECT_EQ(behind(taken, "Records of"), "x\t\tIN\tA\t192.0.2.9\n@\t\tIN\tMX\t5 mx.o.\n@\t\tIN\tTXT\t\"google=1\"\n");
  EXPECT_TRUE(holds(taken, "192.0.2.1\nwww") && holds(taken, "v=spf1 a ~all"));
  EXPECT_FALSE(holds(taken, "10 mail"));
  // Read again it gives the same, and the template's part is not taken for the account's.
  EXPECT_EQ(compose(taken), taken);
  conf.allow_ttl_override = true;
  std::string edited = taken + "www 60 CNAME bob.example.\n@ TXT \"v=spf1 -all\"\n";
  const std::string kept = compose(edited);
  EXPECT_TRUE(holds(kept, "www\t60\tIN\tCNAME\tbob.example.\n@\t\tIN\tTXT\t\"v=spf1 -all\"\n"));
  EXPECT_EQ(times(kept, "www"), 1);
  EXPECT_EQ(times(kept, "v=spf1"), 1);
  EXPECT_TRUE(holds(compose(taken + "a_b A 192.0.2.1\n"), "REFUSED a_b A"));
}

TEST(ZoneTemplate, RepeatsTheLinesOfLists) {
  PanelFolder panel;
  panel.put("templates/dns_zone.txt",
            "|?TTL=1|\n$TTL |TTL| |DOMAIN|\n|SUBDOMAIN| |IP|\n|IPV6|\n|*if SPF|\n|SPF|\n|*endif|\nend\n");
  ZoneTemplate zones;
  Text why;
  std::string text;
  ASSERT_TRUE(zones.read(why)) << why.orEmpty();
  const ZoneValues values = {
      {ZoneToken::domain, {"d"}}, {ZoneToken::subdomain, {"a", "b"}}, {ZoneToken::ip, {"1", "2"}}};
  ASSERT_TRUE(zones.fill(values, text, why)) << why.orEmpty();
  EXPECT_EQ(text, "$TTL 1 d\na 1\na 2\nb 1\nb 2\nend\n");
  panel.makeFolder("templates/custom");
  panel.put("templates/custom/dns_zone.txt", "|DOMIAN|\n");
  ASSERT_TRUE(zones.read(why));
  EXPECT_FALSE(zones.fill(values, text, why));
  EXPECT_TRUE(holds(why.view(), "there is no token DOMIAN"));
}

TEST(ZoneSerial, NeverFalls) {
  std::tm day{};
  day.tm_year = 126, day.tm_mon = 10, day.tm_mday = 23, day.tm_hour = 12, day.tm_isdst = -1;
  const std::time_t now = std::mktime(&day);
  for (const auto& [last, want] : Rows<unsigned long, unsigned long>{{0, 2026112301},
                                                                     {2026112205, 2026112301},
                                                                     {2026112301, 2026112302},
                                                                     {2026112399, 2026112400},
                                                                     {2027010100, 2027010101},
                                                                     {4294967294, 4294967295},
                                                                     {4294967295, 1}}) {
    EXPECT_EQ(serialAfter(last, now), want);
  }
}

}  // namespace
