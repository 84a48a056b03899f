// The stock filters on what real daemons write (tests/fixtures/brute).
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "core/text/text.h"
#include "support/fixtures.h"
#include "tally/bruteforce/lines/filters.h"
#include "tally/bruteforce/lines/match.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

/// What the filters of a program make of a log: "times filter address attempts user" for failed log-ins alike, with "?"
/// behind an address that is in doubt.
std::string recognised(const std::string& program, const std::string& file, AddressChoice choice) {
  BruteFilters stock;
  stock.addStock();
  std::vector<const BruteFilter*> filters;
  for (const BruteFilter& filter : stock.all()) {
    if (filter.name.starts_with(program)) filters.push_back(&filter);
  }
  std::istringstream lines(fixture("brute/" + file));
  AddressTable addresses;
  std::map<std::string, int> found;
  for (std::string line; std::getline(lines, line);) {
    BruteMatch match;
    if (!parseLine(filters, BruteLine(line), choice, addresses, match)) continue;
    const bool known = match.address != NameTable::kNone;
    const std::string address = known ? std::string(addresses.clean().at(match.address)) : "-";
    ++found[joined(match.filter->name, " ", address, match.isAmbiguous ? "? " : " ", std::to_string(match.attempts),
                   " ", match.user)];
  }
  std::string all;
  for (const auto& [what, times] : found) all += joined(std::to_string(times), " ", what, "\n");
  return all;
}

}  // namespace

TEST(BruteFixtures, StockFilters) {
  const struct {
    const char* program;
    std::vector<const char*> files;
    const char* want;
  } cases[] = {
      {"sshd",
       {"sshd-classic.log", "sshd-iso.log"},
       "2 sshd3 127.0.0.1 1 invalid\n"
       "2 sshd3 192.0.2.9? 1 invalid\n"
       "2 sshd3 ::1 1 invalid\n"
       "1 sshd4 127.0.0.1 1 nosuch\n"
       "1 sshd4 127.0.0.1 1 x[192.0.2.9]\n"
       "2 sshd4 192.0.2.9? 1 from\n"
       "1 sshd4 ::1 1 nosuch\n"
       "1 sshd4 ::1 1 x[192.0.2.9]\n"
       "1 sshd5 127.0.0.1 1 alice\n"
       "1 sshd5 127.0.0.1 1 root\n"
       "1 sshd5 ::1 1 alice\n"
       "1 sshd5 ::1 1 root\n"},
      {"proftpd",
       {"proftpd-classic.log", "proftpd-iso.log"},
       "1 proftpd1 127.0.0.1 1 bob@client.example\n"
       "1 proftpd1 127.0.0.1 1 nosuch\n"
       "1 proftpd1 127.0.0.1? 1 x [192.0.2.9] y\n"
       "1 proftpd1 ::1 1 bob@client.example\n"
       "1 proftpd1 ::1 1 nosuch\n"
       "1 proftpd1 ::1? 1 x [192.0.2.9] y\n"
       "1 proftpd2 127.0.0.1 1 alice\n"
       "1 proftpd2 ::1 1 alice\n"
       "1 proftpd3 127.0.0.1 3 \n"
       "1 proftpd3 ::1 3 \n"
       "1 proftpd4 127.0.0.1 1 \n"
       "1 proftpd4 ::1 1 \n"},
      {"proftpd", {"proftpd-own.log"}, ""},
      {"dovecot",
       {"dovecot-classic.log", "dovecot-iso.log"},
       "3 dovecot1 127.0.0.1 1 alice\n"
       "3 dovecot1 127.0.0.1 1 bob@client.example\n"
       "3 dovecot1 127.0.0.1 1 nosuch\n"
       "2 dovecot1 192.0.2.9? 1 x\n"
       "3 dovecot1 ::1 1 alice\n"
       "3 dovecot1 ::1 1 bob@client.example\n"
       "3 dovecot1 ::1 1 nosuch\n"},
      {"exim",
       {"exim-mainlog.log"},
       "1 exim1 127.0.0.1 1 alice\n"
       "1 exim1 127.0.0.1 1 bob@client.example\n"
       "1 exim1 127.0.0.1? 1 x\n"
       "2 exim1 192.0.2.9? 1 alice\n"
       "1 exim1 ::1 1 alice\n"
       "1 exim1 ::1 1 bob@client.example\n"
       "1 exim1 ::1? 1 x\n"
       "3 exim2 127.0.0.1 1 alice\n"
       "3 exim2 127.0.0.1? 1 x\n"
       "6 exim2 192.0.2.9? 1 alice\n"
       "3 exim2 ::1 1 alice\n"
       "3 exim2 ::1? 1 x\n"},
      {"pure-ftpd",
       {"pure-ftpd-classic.log", "pure-ftpd-iso.log"},
       "1 pure-ftpd1 127.0.0.1 1 alice\n"
       "1 pure-ftpd1 127.0.0.1 1 bob@client.example\n"
       "1 pure-ftpd1 127.0.0.1 1 nosuch\n"
       "1 pure-ftpd1 127.0.0.1 1 root\n"
       "1 pure-ftpd1 127.0.0.1 1 x [192.0.2.9\n"
       "1 pure-ftpd1 ::1 1 alice\n"
       "1 pure-ftpd1 ::1 1 bob@client.example\n"
       "1 pure-ftpd1 ::1 1 nosuch\n"
       "1 pure-ftpd1 ::1 1 root\n"
       "1 pure-ftpd1 ::1 1 x [192.0.2.9\n"},
      {"roundcube",
       {"roundcube-errors.log"},
       "1 roundcube1 127.0.0.1 1 alice\n"
       "1 roundcube1 127.0.0.1? 1 alice\n"
       "1 roundcube1 ::1 1 bob@client.example\n"
       "1 roundcube2 127.0.0.1 1 alice\n"},
      {"squirrelmail",
       {"squirrelmail-access.log"},
       "1 squirrelmail1 127.0.0.1 1 alice\n"
       "1 squirrelmail1 ::1 1 bob@client.example\n"},
      {"phpmyadmin",
       {"phpmyadmin-auth.log"},
       "2 phpmyadmin1 127.0.0.1 1 alice\n"
       "1 phpmyadmin1 192.0.2.9? 1 x\n"
       "1 phpmyadmin1 ::1 1 root\n"},
      {"wordpress",
       {"wordpress-access.log"},
       "1 wordpress1 127.0.0.1 1 \n"
       "1 wordpress1 ::1 1 \n"},
  };
  for (const auto& c : cases) {
    for (const char* file : c.files) EXPECT_EQ(recognised(c.program, file, AddressChoice::first), c.want) << file;
  }
}
