#include "tally/bruteforce/lines/suspended_accounts.h"

#include <dlfcn.h>
#include <pwd.h>
#include <sched.h>

#include "support/panel_folder.h"

namespace {
long long lookUps = 0;

class Suspended : public ::testing::Test {
 protected:
  Suspended() {
    panel_.makeFolder("virtual/site.example");
    writeText(panel_.path("virtual/site.example/passwd"),
              "bob:!$6$x:1:2\nann:$6$!x:1:2\nlone:!\ntwo:!!:1\nstar:!*:1:2\nhalf\n:!a\n../x:!a\n");
    writeText(panel_.path("virtual/passwd"), "bob:!x\n");
    writeText(panel_.path("ftp"), "bob@site.example:!$6$x:1:2:\nann:$6$x:1\n");
    panel_.conf.ftppasswd = panel_.path("ftp").c_str();
  }
  bool isSuspended(const char* name, const char* service) {
    return user_is_suspended(&panel_.conf, name, service) != 0;
  }
  long errorsWith(const std::string& text) const { return times(panel_.logs.errors(), text); }

  PanelFolder panel_;
};
}  // namespace

/// The library's own, counted.
extern "C" passwd* getpwnam(const char* name) {
  ++lookUps;
  return reinterpret_cast<passwd* (*)(const char*)>(::dlsym(RTLD_NEXT, "getpwnam"))(name);
}

TEST_F(Suspended, ByServiceAndFile) {
  const std::string huge(1'000'000, 'x'), hugeMailbox = huge + "@site.example";
  for (const auto& [service, suspended, others] : Rows<const char*, std::vector<const char*>, std::vector<const char*>>{
           {"exim", {"bob@site.example"}, {"bob@other.example"}},
           {"dovecot",
            {"bob@site.example", "@site.example", "../x@site.example"},
            {"two@site.example", "star@site.example", "bob@../site.example", "bob@", "x@bob@site.example",
             "bob\n@site.example", "", nullptr, hugeMailbox.c_str()}},
           {"roundcube", {"bob@site.example"}, {"ann@site.example"}},
           {"squirrelmail", {"bob@site.example"}, {"lone@site.example"}},
           {"proftpd", {"bob@site.example"}, {"bob", huge.c_str()}},
           {"pure-ftpd", {"bob@site.example"}, {"ann"}},
           {"wordpress", {}, {"bob@site.example"}},
           {"sshd", {}, {"root", "no-such-account", huge.c_str()}},
           {"", {}, {"bob@site.example"}},
           {nullptr, {}, {"bob@site.example"}}}) {
    for (const char* name : suspended) EXPECT_TRUE(isSuspended(name, service)) << name;
    for (const char* name : others) {
      EXPECT_FALSE(isSuspended(name, service)) << std::string(name == nullptr ? "null" : name).substr(0, 60);
    }
  }
  EXPECT_EQ(user_is_suspended(nullptr, "bob@site.example", "exim"), 0);
  EXPECT_LT(panel_.logs.errors().size(), 20'000U);
  EXPECT_EQ(errorsWith("Unknown BFM service for suspend skip check: 'wordpress'"), 1);
  EXPECT_EQ(errorsWith("/virtual/other.example/passwd): Cannot open file: No such file or directory"), 1);
  EXPECT_EQ(errorsWith("The lenght of the User (1000000) is greater than the size of the buffer (512)"), 2);
  EXPECT_TRUE(
      holds(panel_.logs.security(), "site.example/passwd): User is suspended.  Exempt from brute force count."));
}

TEST_F(Suspended, RemembersWithinAScanAsksAndSaysLittle) {
  SuspendedAccounts accounts(panel_.conf);
  lookUps = 0;
  EXPECT_TRUE(accounts.isSuspended("bob@site.example", "proftpd"));
  writeText(panel_.path("ftp"), "");
  EXPECT_TRUE(accounts.isSuspended("bob@site.example", "pure-ftpd"));
  for (int i = 0; i < 1500; ++i) {
    EXPECT_FALSE(accounts.isSuspended(joined("bob@d", std::to_string(i), ".example").c_str(), "exim"));
    EXPECT_FALSE(accounts.isSuspended("bob", "wordpress"));
    EXPECT_FALSE(accounts.isSuspended(joined("ghost", std::to_string(i)).c_str(), "sshd"));
  }
  EXPECT_FALSE(accounts.isSuspended("root", "dovecot"));
  EXPECT_GT(lookUps, 0);
  EXPECT_LT(lookUps, 20);
  EXPECT_EQ(errorsWith("Cannot open file"), 20);
  EXPECT_EQ(errorsWith("Unknown BFM service"), 1);
}

TEST_F(Suspended, SystemAccountsOneByOneAndListed) {
  const Rows<const char*, int, const char*> made{{"zv-first", 1000, "!$6$x"}, {"zv-daemon", 999, "!$6$x"},
                                                 {"zv-locked", 1001, "!"},    {"zv-never", 1002, "!!"},
                                                 {"zv-star", 1003, "!*"},     {"zv-open", 1004, "$6$!"}};
  std::string passwords = contentOf("/etc/passwd"), shadow = contentOf("/etc/shadow");
  for (const auto& [name, id, password] : made) {
    passwords += joined(name, ":x:", std::to_string(id), ":", std::to_string(id), "::/:/bin/sh\n");
    shadow += joined(name, ":", password, ":1:0:99999:7:::\n");
  }
  writeText(panel_.path("passwd"), passwords);
  writeText(panel_.path("shadow"), shadow);
  const std::string lay = joined("mount --make-rprivate /; cd ", panel_.path(""),
                                 "; mount --bind passwd /etc/passwd && mount --bind shadow /etc/shadow");
  // How many are taken for what they are not: asked for one by one, and behind so many others that all are listed.
  EXPECT_EQ(inAProcessOfItsOwn([&] {
              if (::unshare(CLONE_NEWNS) != 0 || std::system(lay.c_str()) != 0) return 99;
              int wrong = 0;
              for (const int others : {0, 20}) {
                SuspendedAccounts accounts(panel_.conf);
                for (int i = 0; i < others; ++i)
                  wrong += accounts.isSuspended(joined("ghost", std::to_string(i)).c_str(), "sshd");
                for (const auto& row : made) {
                  wrong += accounts.isSuspended(std::get<0>(row), "exim") != (&row == &made[0]);
                }
              }
              return wrong;
            }),
            0);
}

TEST_F(Suspended, NoFileThatOthersPlanted) {
  const std::string ftp = panel_.path("ftp");
  ::unlink(ftp.c_str());
  fs::create_symlink(panel_.path("virtual/site.example/passwd"), ftp);
  give(ftp, 65534);
  EXPECT_EQ(user_is_suspended_in_file("bob", ftp.c_str()), 0);
  ::unlink(ftp.c_str());
  ASSERT_EQ(::mkfifo(ftp.c_str(), 0600), 0);
  EXPECT_FALSE(isSuspended("bob", "proftpd"));
  EXPECT_EQ(errorsWith("Cannot open file"), 2);
}
