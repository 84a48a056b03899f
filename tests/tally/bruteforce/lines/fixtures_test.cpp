// The stock filters on what real daemons write (tests/fixtures/brute).
#include "support/fixtures.h"
#include "tally/bruteforce/lines/filters.h"
#include "tally/bruteforce/lines/match.h"

namespace {
/// What the filters of a program make of a log: a line "filter attempts user: address address..." for failed log-ins
/// alike, with how often behind an address, and "?" where it is in doubt.
std::string recognised(const std::string& program, const std::string& file) {
  BruteFilters stock;
  stock.addStock();
  std::vector<const BruteFilter*> filters;
  for (const BruteFilter& filter : stock.all()) {
    if (filter.name.starts_with(program)) filters.push_back(&filter);
  }
  std::istringstream lines(fixture("brute/" + file));
  AddressTable addresses;
  std::map<std::string, std::map<std::string, int>> found;
  for (std::string line; std::getline(lines, line);) {
    BruteMatch match;
    if (!parseLine(filters, BruteLine(line), AddressChoice::first, addresses, match)) continue;
    const bool known = match.address != NameTable::kNone;
    const std::string address = known ? std::string(addresses.clean().at(match.address)) : "-";
    ++found[joined(match.filter->name, " ", std::to_string(match.attempts), " ", match.user)]
           [address + (match.isAmbiguous ? "?" : "")];
  }
  std::string all;
  for (const auto& [what, times] : found) {
    all += what + ":";
    for (const auto& [address, number] : times) all += joined(" ", address, "*", std::to_string(number));
    all += "\n";
  }
  return all;
}
}  // namespace

TEST(BruteFixtures, StockFilters) {
  for (const auto& [program, files, want] : Rows<const char*, std::vector<const char*>, const char*>{
           {"sshd",
            {"sshd-classic.log", "sshd-iso.log"},
            "sshd3 1 invalid: 127.0.0.1*2 192.0.2.9?*2 ::1*2\n"
            "sshd4 1 from: 192.0.2.9?*2\n"
            "sshd4 1 nosuch: 127.0.0.1*1 ::1*1\n"
            "sshd4 1 x[192.0.2.9]: 127.0.0.1*1 ::1*1\n"
            "sshd5 1 alice: 127.0.0.1*1 ::1*1\n"
            "sshd5 1 root: 127.0.0.1*1 ::1*1\n"},
           {"proftpd",
            {"proftpd-classic.log", "proftpd-iso.log"},
            "proftpd1 1 bob@client.example: 127.0.0.1*1 ::1*1\n"
            "proftpd1 1 nosuch: 127.0.0.1*1 ::1*1\n"
            "proftpd1 1 x [192.0.2.9] y: 127.0.0.1?*1 ::1?*1\n"
            "proftpd2 1 alice: 127.0.0.1*1 ::1*1\n"
            "proftpd3 3 : 127.0.0.1*1 ::1*1\n"
            "proftpd4 1 : 127.0.0.1*1 ::1*1\n"},
           {"proftpd", {"proftpd-own.log"}, ""},
           {"dovecot",
            {"dovecot-classic.log", "dovecot-iso.log"},
            "dovecot1 1 alice: 127.0.0.1*3 ::1*3\n"
            "dovecot1 1 bob@client.example: 127.0.0.1*3 ::1*3\n"
            "dovecot1 1 nosuch: 127.0.0.1*3 ::1*3\n"
            "dovecot1 1 x: 192.0.2.9?*2\n"},
           {"exim",
            {"exim-mainlog.log"},
            "exim1 1 alice: 127.0.0.1*1 192.0.2.9?*2 ::1*1\n"
            "exim1 1 bob@client.example: 127.0.0.1*1 ::1*1\n"
            "exim1 1 x: 127.0.0.1?*1 ::1?*1\n"
            "exim2 1 alice: 127.0.0.1*3 192.0.2.9?*6 ::1*3\n"
            "exim2 1 x: 127.0.0.1?*3 ::1?*3\n"},
           {"pure-ftpd",
            {"pure-ftpd-classic.log", "pure-ftpd-iso.log"},
            "pure-ftpd1 1 alice: 127.0.0.1*1 ::1*1\n"
            "pure-ftpd1 1 bob@client.example: 127.0.0.1*1 ::1*1\n"
            "pure-ftpd1 1 nosuch: 127.0.0.1*1 ::1*1\n"
            "pure-ftpd1 1 root: 127.0.0.1*1 ::1*1\n"
            "pure-ftpd1 1 x [192.0.2.9: 127.0.0.1*1 ::1*1\n"},
           {"roundcube",
            {"roundcube-errors.log"},
            "roundcube1 1 alice: 127.0.0.1*1 127.0.0.1?*1\n"
            "roundcube1 1 bob@client.example: ::1*1\n"
            "roundcube2 1 alice: 127.0.0.1*1\n"},
           {"squirrelmail",
            {"squirrelmail-access.log"},
            "squirrelmail1 1 alice: 127.0.0.1*1\n"
            "squirrelmail1 1 bob@client.example: ::1*1\n"},
           {"phpmyadmin",
            {"phpmyadmin-auth.log"},
            "phpmyadmin1 1 alice: 127.0.0.1*2\n"
            "phpmyadmin1 1 root: ::1*1\n"
            "phpmyadmin1 1 x: 192.0.2.9?*1\n"},
           {"wordpress", {"wordpress-access.log"}, "wordpress1 1 : 127.0.0.1*1 ::1*1\n"}}) {
    for (const char* file : files) EXPECT_EQ(recognised(program, file), want) << file;
  }
}
