#include "tally/counts/account_counts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

constexpr const char* kDomain = "games.example";

/// A panel with the account "games", whose user id is 5 on every Debian.
struct CountsPanel : PanelFolder {
  CountsPanel() {
    conf.userdata = path("users").c_str();
    conf.ftppasswd = path("ftppasswd").c_str();
    makeFolder(joined("users/games/domains"));
    makeFolder(joined("virtual/", kDomain));
  }
  std::string mail(const char* file) const { return path(joined("virtual/", kDomain, "/", file)); }
  std::string panel(const char* ending) const { return path(joined("users/games/domains/", kDomain, ".", ending)); }
  AccountCounts counted() const { return Counts(conf).of("games", {kDomain, "missing.example"}); }
};

struct Case {
  const char* name;
  const char* file;
  const char* content;
  long long AccountCounts::*count;
  long long want;
};

}  // namespace

TEST(AccountCounts, EachKindOfFile) {
  const Case cases[] = {
      {"mailboxes", "passwd", "# none\na:$6$x:8:8::/home/a::\nb:!$6$y:8:8:::\nc::8:8:::\nd\n:x:\na:again:8:8:::\ne:h",
       &AccountCounts::nemails, 3},
      {"forwarders", "aliases", "*: all@x.example\ngames: games\ninfo: a, b,\n  c\nnone:\nsales : d\n#no: e\n",
       &AccountCounts::nemailf, 2},
      {"lists", "lists.list", "news\n\nnews\nteam\r\n# no\n", &AccountCounts::nemailml, 2},
      {"autoresponders", "autoresponder.conf", "a:subject=Away\nb:\n", &AccountCounts::nemailr, 2},
      {"no vacations", "vacation.conf", "a:starttime=morning\n", &AccountCounts::nemailr, 0},
      {"pointers", "pointers", "one.example\ntwo.example=redirect\n", &AccountCounts::domainptr, 2},
      {"a file that is empty", "passwd", "", &AccountCounts::nemails, 0},
  };
  for (const Case& c : cases) {
    const CountsPanel panel;
    const bool isPanels = c.count == &AccountCounts::domainptr;
    writeText(isPanels ? panel.panel(c.file) : panel.mail(c.file), c.content);
    const AccountCounts counts = panel.counted();
    EXPECT_EQ(counts.*c.count, c.want) << c.name;
    EXPECT_TRUE(counts.isWhole && panel.logs.errors().empty()) << c.name << panel.logs.errors();
  }
}

TEST(AccountCounts, FtpAccountsByOwner) {
  const CountsPanel panel;
  writeText(
      panel.path("ftppasswd"),
      "games:h:5:60::/home/games:\nweb@games.example:h:5:60::/home/games:\nlocked:!h:5:60::/x:\n"
      "bin@games.example:h:2:2::/x:\nvirtual@games.example:h:54321:54321::/x:\nother@else.example:h:54321:1::/x:\n"
      "none::5:60::/x:\n#no:h:5:60::/x:\nodd:h:5x:60::/x:\ncut\n");
  EXPECT_EQ(panel.counted().ftp, 3);
  EXPECT_EQ(Counts(panel.conf).of("bin", {}).ftp, 1);
  writeText(panel.panel("ftppasswd"),
            "games:h:5:60::/home/games:\nshop:!h:5:60::/x:\nshop:h:5:60::/x:\nnone::5:60::/x:\n");
  EXPECT_EQ(panel.counted().ftp, 4) << "a domain's own";
  ::unlink(panel.path("ftppasswd").c_str());
  ASSERT_EQ(::mkfifo(panel.path("ftppasswd").c_str(), 0600), 0);
  EXPECT_FALSE(panel.counted().isWhole);
}

TEST(AccountCounts, HostileFilesCountNothing) {
  const struct {
    const char* file;
    const char* make;
    bool isTold = true;
  } cases[] = {{"aliases", "ln -s /etc/hosts "},
               {"aliases", "mkfifo -m 666 "},
               {"aliases", "truncate -s 1T "},
               {"aliases", "install -m 600 /etc/hosts "},
               {"", "f() { rm -r $1; ln -s /etc ${1%/}; }; f "},
               {"pointers", "mkfifo -m 666 "},
               {"pointers", "truncate -s 1T "},
               {"pointers", "install -o mail -m 644 /etc/hosts ", false}};
  for (const auto& c : cases) {
    const CountsPanel panel;
    writeText(panel.mail("passwd"), "a:h:8:8:::\n");
    const bool isMail = *c.file == 'a' || *c.file == '\0';
    std::string path = isMail ? panel.mail(c.file) : panel.panel(c.file);
    ASSERT_EQ(std::system((c.make + path).c_str()), 0);
    if (path.ends_with('/')) path.pop_back();
    const AccountCounts counts = panel.counted();
    EXPECT_EQ(counts.nemails, *c.file == '\0' ? 0 : 1) << c.file;
    EXPECT_EQ(counts.nemailf + counts.domainptr, 0) << c.file;
    const std::string errors = panel.logs.errors();
    EXPECT_EQ(counts.isWhole, !c.isTold) << c.make << errors;
    EXPECT_TRUE(!c.isTold || holds(errors, path + " of account games is not counted: ")) << c.make;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), c.isTold ? 1 : 0) << errors;
  }
}
