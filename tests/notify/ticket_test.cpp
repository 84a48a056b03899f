#include "notify/ticket.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "notify/notice_limit.h"
#include "support/fixed_clock.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

/// A panel in a folder of its own, with its real user.
class Messages : public ::testing::Test {
 protected:
  void SetUp() override {
    if (realIds().user != 0 || getUID(kPanelUser) == kUnknownId) GTEST_SKIP() << "needs root and the panel's user";
    ::chmod(folder_.path().c_str(), 0711);
    for (const char* name : {"tickets", "users", "admin", "conf"}) make(name, 0711);
    // As on a server: what is kept as nobody lives beside what nobody may not touch.
    ASSERT_EQ(::chown(folder_.path("admin").c_str(), getUID(kPanelUser), nobodyIds().group), 0);
    ::chmod(folder_.path("admin").c_str(), 01731);
    put("admin/admin.list", "boss\n");
    put("admin/tickets.list", "");
    put("admin/next_ticket.number", "41\n");
    put("zorvane.conf",
        joined("serverpath=", folder_.path(), "\nservername=server.example\nticketsdir=", folder_.path("tickets"),
               "\nadmindir=", folder_.path("admin"), "\nuserdata=", folder_.path("users"), "\n"));
    conf_.setFilename(folder_.path("zorvane.conf").c_str());
    ASSERT_EQ(conf_.readFile(), 1) << conf_.result.orEmpty();
    useConfiguration(&conf_);
  }
  void TearDown() override {
    setFailPlan(nullptr);
    useConfiguration(nullptr);
  }
  void make(const std::string& name, mode_t mode) {
    const std::string path = folder_.path(name);
    ::mkdir(path.c_str(), mode);
    EXPECT_EQ(::chown(path.c_str(), getUID(kPanelUser), getGID(kPanelUser, 0)), 0);
  }
  void put(const std::string& name, const std::string& text, const char* owner = kPanelUser) {
    const std::string path = folder_.path(name);
    writeText(path, text);
    EXPECT_EQ(::chown(path.c_str(), getUID(owner), getGID(owner, 0)), 0);
    ::chmod(path.c_str(), 0600);
  }
  void addUser(const std::string& name) {
    make("users/" + name, 0711);
    put("users/" + name + "/user.conf", "username=" + name + "\nusertype=user\n");
    put("users/" + name + "/tickets.list", "");
  }
  std::string content(const std::string& name) const { return contentOf(folder_.path(name)); }
  /// Sends a message.
  int send(const ListFile& recipients, bool includeAdmins = false) {
    ConfigFile record(nullptr);
    record.setParam("subject", "Two\nlines");
    record.setParam("message", "Body |x|\n=1\n");
    record.setParam("user", "multiple");
    record.setParam("priority", "30");
    Ticket ticket;
    const int sent = ticket.sendSystemMessage(record, &recipients, 0, includeAdmins);
    result_ = ticket.result.orEmpty();
    isLost_ = ticket.isLost;
    EXPECT_TRUE(effectiveIds() == kRootIds);
    return sent;
  }

  Folder folder_;
  Config conf_{nullptr};
  std::string result_;
  bool isLost_ = false;
};

}  // namespace

TEST_F(Messages, AreStoredOnceAndAnnouncedToEachRecipient) {
  for (const char* name : {"bob", "ann"}) addUser(name);
  ListFile recipients(nullptr);
  for (const char* name : {"bob", "ann", "zvadmin"}) recipients.addElement(name);
  ASSERT_EQ(send(recipients, true), 1) << result_;
  const std::string ticket = "tickets/000/041/";
  EXPECT_EQ(content(ticket + "001.msg"), "Body |x|\n=1\n");
  EXPECT_EQ(
      content(ticket + "001.conf"),
      "from=zvadmin\nname=Message System\npriority=30\nstatus=open\nsubject=Two lines\ntype=message\nuser=multiple\n");
  EXPECT_EQ(content("admin/next_ticket.number"), "42\n");
  for (const char* list : {"users/bob/tickets.list", "users/ann/tickets.list", "admin/tickets.list"}) {
    EXPECT_EQ(content(list), "000000041=type=message&new=yes\n") << list;
    EXPECT_EQ(modeOf(folder_.path(list)), 0600U) << list;
  }
  for (const auto& [name, mode] : {std::pair{"tickets/000", 0700U},
                                   {"tickets/000/041", 0700U},
                                   {"tickets/000/041/001.msg", 0600U},
                                   {"tickets/000/041/001.conf", 0600U},
                                   {"admin/next_ticket.number", 0600U}}) {
    struct stat what {};
    ASSERT_EQ(::lstat(folder_.path(name).c_str(), &what), 0) << name;
    EXPECT_EQ(what.st_mode & 07777, mode) << name;
    EXPECT_EQ(what.st_uid, getUID(kPanelUser)) << name;
  }
  // Nobody to tell: the ticket is stored all the same.
  ASSERT_EQ(send(ListFile(nullptr)), 1);
  EXPECT_TRUE(exists(folder_.path("tickets/000/042/001.msg")));
}

TEST_F(Messages, OneRecipientOutOfReachDoesNotKeepTheOthers) {
  addUser("bob");
  addUser("ann");
  put("canary", "untouched");
  ASSERT_EQ(::unlink(folder_.path("users/ann/tickets.list").c_str()), 0);
  ASSERT_EQ(::symlink(folder_.path("canary").c_str(), folder_.path("users/ann/tickets.list").c_str()), 0);
  ListFile recipients(nullptr);
  for (const char* name : {"ann", "../admin", "ghost", "bob"}) recipients.addElement(name);
  const LogCapture logs;
  EXPECT_EQ(send(recipients), 0);
  EXPECT_FALSE(isLost_);
  EXPECT_EQ(content("users/bob/tickets.list"), "000000041=type=message&new=yes\n");
  EXPECT_EQ(content("canary"), "untouched");
  EXPECT_EQ(content("admin/tickets.list"), "");
  for (const char* name : {"ann", "../admin", "ghost"}) {
    EXPECT_NE(result_.find(joined("Can't read ", name, "'s tickets file to add ticket<br>\n")), std::string::npos)
        << result_;
  }
  EXPECT_NE(logs.errors().find("Ticket::deliverMessage::Can't read " + folder_.path("users/ghost/tickets.list") + ": "),
            std::string::npos);
  // The write that fails is that of the list: one for the counter and one for the header go before it.
  setFailPlan("safe_write.rename:ENOSPC:2");
  ListFile bob(nullptr);
  bob.addElement("bob");
  EXPECT_EQ(send(bob), 0);
  EXPECT_TRUE(isLost_);
  EXPECT_EQ(result_, "Unable to write bob's tickets file to add ticket<br>\n");
  EXPECT_NE(logs.errors().find("Tickets::deliverMessage::Unable to write " + folder_.path("users/bob/tickets.list")),
            std::string::npos);
}

TEST_F(Messages, ReachAdministratorsByTheirTypeToo) {
  addUser("chief");
  addUser("clerk");
  put("users/chief/user.conf", "usertype=admin\n");
  put("users/clerk/user.conf", "usertype=reseller\n");
  ListFile recipients(nullptr);
  for (const char* name : {"chief", "clerk"}) recipients.addElement(name);
  ASSERT_EQ(send(recipients), 1) << result_;
  EXPECT_EQ(content("admin/tickets.list"), "000000041=type=message&new=yes\n");
  EXPECT_EQ(content("users/chief/tickets.list"), "");
  EXPECT_EQ(content("users/clerk/tickets.list"), "000000041=type=message&new=yes\n");

  // Without the list of administrators there is their type still, and nobody more to tell.
  ASSERT_EQ(::unlink(folder_.path("admin/admin.list").c_str()), 0);
  const LogCapture logs;
  ASSERT_EQ(send(recipients, true), 1) << result_;
  EXPECT_EQ(content("admin/tickets.list"), "000000041=type=message&new=yes\n000000042=type=message&new=yes\n");
  const std::string list = folder_.path("admin/admin.list");
  EXPECT_NE(logs.errors().find("sendSystemMessage: include_admins: error reading " + list + ": Unable to open "),
            std::string::npos);
  EXPECT_NE(logs.errors().find("Unable to read: " + list + ": Unable to open "), std::string::npos);
  EXPECT_EQ(Ticket().notifyAdmins("", "S", "M", 1), 0);
  EXPECT_FALSE(exists(folder_.path("tickets/000/043")));
}

TEST_F(Messages, KeepTheNameTheyCarry) {
  ConfigFile record(nullptr);
  record.setParam("name", "Somebody Else");
  record.setParam("subject", "S");
  ASSERT_EQ(Ticket().sendSystemMessage(record, nullptr, 0, false), 1);
  EXPECT_NE(content("tickets/000/041/001.conf").find("name=Somebody Else\n"), std::string::npos);
}

/// Whatever becomes of the counter: every message has a ticket of its own, and what is planted is neither followed nor
/// taken for a ticket.
TEST_F(Messages, NoNumberIsUsedTwice) {
  const struct {
    const char* name;
    const char* counter;
    const char* logged;
    const char* ticket;
    const char* next;
  } cases[] = {
      {"counted", "60\n", "", "060", "61\n"},
      {"emptied", "", "Ticket: Error reading ticket number from ", "061", "62\n"},
      {"no number", "abc\n", "Ticket: Error reading ticket number from ", "062", "63\n"},
      {"negative", "-7\n", "Ticket: Error reading ticket number from ", "063", "64\n"},
      {"put back", "60\n", "the number 60 of ", "064", "65\n"},
      {"missing", nullptr, "Can't open file ", "065", "66\n"},
      {"only listed", "", "Ticket: Error reading ticket number from ", "101", "102\n"},
      {"a link of that name", "150\n", "the number 150 of ", "151", "152\n"},
      {"full disk", "103\n", "Unable to write ", "152", "103\n"},
      {"locked", "103\n", "Can't get lock on ", "153", "103\n"},
  };
  put("canary", "untouched");
  for (const auto& c : cases) {
    const std::string name = c.name;
    const LogCapture logs;
    put("admin/next_ticket.number", c.counter == nullptr ? "" : c.counter);
    if (c.counter == nullptr) ::unlink(folder_.path("admin/next_ticket.number").c_str());
    if (name == "only listed") put("admin/tickets.list", "000000100=type=message&new=yes\n");
    if (name == "a link of that name") {
      ASSERT_EQ(::symlink(folder_.path().c_str(), folder_.path("tickets/000/150").c_str()), 0);
    }
    if (name == "locked") put("admin/next_ticket.number.lock", "");
    if (name == "full disk") setFailPlan("safe_write.write:ENOSPC");
    // A full disk fails the header too, and that is all it may do.
    EXPECT_EQ(send(ListFile(nullptr)), name == "full disk" ? 0 : 1) << name << result_;
    setFailPlan(nullptr);
    EXPECT_EQ(content(joined("tickets/000/", c.ticket, "/001.msg")), "Body |x|\n=1\n") << name;
    EXPECT_FALSE(exists(folder_.path(joined("tickets/000/", c.ticket, "/002.msg")))) << name;
    EXPECT_EQ(content("admin/next_ticket.number"), c.next) << name;
    EXPECT_NE(logs.errors().find(c.logged), std::string::npos) << name << logs.errors();
    if (name == "locked") ::unlink(folder_.path("admin/next_ticket.number.lock").c_str());
  }
  EXPECT_EQ(content("canary"), "untouched");
}

TEST_F(Messages, WritingFailsInItsOwnWords) {
  const struct {
    const char* plan;
    const char* logged;
    const char* result;
  } cases[] = {
      {"ticket.mkdir:ENOSPC",
       "Ticket::writeTicket: Can't create directory: ", "Unable to create the ticket directory: "},
      {"ticket.open:EDQUOT:5", "Ticket::writeTicket::Error opening ", "Could not write the message"},
      {"ticket.write:short", "Ticket::writeTicket::Error opening ", "Could not write the message"},
      {"safe_write.rename:EIO:1", "Ticket::writeTicket::Error writing ", "Could not write message configuration file"}};
  for (const auto& c : cases) {
    const LogCapture logs;
    setFailPlan(c.plan);
    EXPECT_EQ(send(ListFile(nullptr)), 0) << c.plan;
    setFailPlan(nullptr);
    EXPECT_TRUE(isLost_) << c.plan;
    EXPECT_EQ(result_.find(c.result), 0U) << c.plan << result_;
    EXPECT_NE(logs.errors().find(c.logged), std::string::npos) << c.plan << logs.errors();
  }
  // The highest number there can be is taken.
  make("tickets/2147483", 0700);
  make("tickets/2147483/2147483647", 0700);
  put("admin/next_ticket.number", "");
  const LogCapture logs;
  EXPECT_EQ(send(ListFile(nullptr)), 0);
  EXPECT_NE(logs.errors().find("Couldn't get a ticket number for the system message"), std::string::npos);
}

TEST_F(Messages, ServiceNoticesAreLimited) {
  const long long now = 1'800'000'000;
  const FixedClock clock(now);
  const std::string hourAgo = std::to_string(now - 3600), recently = std::to_string(now - 3599);
  const struct {
    const char* name;
    std::string settings;
    int want;
    const char* logged;
  } cases[] = {
      {"fresh", "service_email_active=yes\nservice_email_last_sent=0\n", 1, ""},
      {"an hour ago", "service_email_active=yes\nservice_email_last_sent=" + hourAgo + "\n", 1, ""},
      {"less than an hour ago", "service_email_active=yes\nservice_email_last_sent=" + recently + "\n", 0, ""},
      {"not wanted", "service_email_active=no\nservice_email_last_sent=0\n", 0, ""},
      {"not asked for", "service_email_last_sent=0\n", 0, ""},
      {"no time", "service_email_active=yes\n", 0, ""},
      {"in the future", "service_email_active=yes\nservice_email_last_sent=99999999999\n", 1,
       "is set anew: 99999999999"},
      {"no number", "service_email_active=yes\nservice_email_last_sent=x\n", 1, "is set anew: x"},
  };
  for (const auto& c : cases) {
    const LogCapture logs;
    put("admin/admin.conf", c.settings, "nobody");
    EXPECT_EQ(mayNotifyOfService(), c.want) << c.name;
    EXPECT_TRUE(effectiveIds() == kRootIds);
    const std::string settings = content("admin/admin.conf");
    const std::size_t stamp = settings.find("last_sent=");
    const long long last = stamp == std::string::npos ? 0 : std::atoll(settings.c_str() + stamp + 10);
    EXPECT_EQ(last == now, c.want == 1) << c.name << settings;
    EXPECT_NE(logs.errors().find(c.logged), std::string::npos) << c.name << logs.errors();
    if (c.want == 1) {
      EXPECT_EQ(mayNotifyOfService(), 0) << c.name;
    }
  }
  const LogCapture logs;
  put("admin/admin.conf", cases[0].settings, "nobody");
  setFailPlan("safe_write.rename:ENOSPC");
  EXPECT_EQ(Ticket().notifyAdmins("named", nullptr, nullptr, 0), 1);
  setFailPlan(nullptr);
  EXPECT_NE(logs.errors().find("Unable to write " + folder_.path("admin/admin.conf") + ": "), std::string::npos);
  ::unlink(folder_.path("admin/admin.conf").c_str());
  EXPECT_EQ(Ticket().notifyAdmins("named", nullptr, nullptr, 0), 1);
  EXPECT_NE(logs.errors().find("Unable to read: " + folder_.path("admin/admin.conf") + ": "), std::string::npos);
  EXPECT_FALSE(exists(folder_.path("tickets/000")));
}

TEST_F(Messages, TenThousandRecipientsTakeTwiceTheTimeOfFiveThousand) {
  const auto timed = [this](int first, int last) {
    ListFile recipients(nullptr);
    for (int i = first; i < last; ++i) recipients.addElement(joined("u", std::to_string(i)).c_str());
    const std::clock_t start = std::clock();
    EXPECT_EQ(send(recipients), 1);
    return std::clock() - start;
  };
  const int many = 10'000;
  for (int i = 0; i < many; ++i) addUser("u" + std::to_string(i));
  const auto half = timed(0, many / 2);
  EXPECT_LT(timed(0, many), half * 4);
  EXPECT_EQ(content("users/u9999/tickets.list"), "000000042=type=message&new=yes\n");
}

/// In a process that sees a folder with nothing but a recorder in it as /usr/sbin.
TEST_F(Messages, GoByEmailInstead) {
  addUser("boss");
  addUser("chief");
  addUser("mute");
  put("users/boss/user.conf", "username=boss\nusertype=admin\nemail=boss@boss.example,nonsense\nemail_on_message=no\n");
  put("users/chief/user.conf", "username=chief\nusertype=admin\nemail=chief@chief.example\n");
  put("admin/admin.list", "boss\nchief\nmute\n");
  make("programs", 0755);
  make("sent", 0711);
  writeText(folder_.path("programs/sendmail"),
            joined("#!/bin/sh\n(id -un; echo $*; cat) >", folder_.path("sent"), "/$$\n"));
  ::chmod(folder_.path("programs/sendmail").c_str(), 0755);
  const LogCapture logs;
  const pid_t child = ::fork();
  if (child == 0) {
    const bool stage = ::unshare(CLONE_NEWNS) == 0 &&
                       ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                       ::mount(folder_.path("programs").c_str(), "/usr/sbin", nullptr, MS_BIND, nullptr) == 0;
    Ticket ticket;
    ::_exit(!stage ? 9 : ticket.notifyAdmins("named", nullptr, nullptr, 1, 1) + (ticket.isLost ? 2 : 0));
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 9) GTEST_SKIP() << "needs mount name spaces";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_NE(logs.errors().find("'nonsense' of account boss is no e-mail address"), std::string::npos) << logs.errors();
  EXPECT_NE(logs.errors().find("There is no e-mail address of administrator mute"), std::string::npos) << logs.errors();
  std::string mails;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path("sent"))) mails += contentOf(entry.path());
  for (const char* want :
       {"zvadmin\n-t\nFrom: \"Message System\" <zvadmin@server.example>\nTo: <boss@boss.example>\n",
        "\nTo: <chief@chief.example>\nSubject: The service 'named' on server server.example is currently down\n"}) {
    EXPECT_NE(mails.find(want), std::string::npos) << want << mails;
  }
  EXPECT_FALSE(exists(folder_.path("tickets/000")));

  // Nobody with an address; no list of administrators.
  put("admin/admin.list", "mute\n");
  for (const int byEmail : {1, 0}) {
    Ticket lost;
    EXPECT_EQ(lost.notifyAdmins("named", nullptr, nullptr, 1, byEmail), 0);
    EXPECT_TRUE(lost.isLost);
    ::unlink(folder_.path("admin/admin.list").c_str());
  }
}

TEST_F(Messages, ADeadMailProgramIsTriedOnce) {
  ListFile recipients(nullptr);
  for (const char* name : {"ann", "bob", "eve"}) {
    addUser(name);
    put(joined("users/", name, "/user.conf"), joined("username=", name, "\nemail=", name, "@x.example\n"));
    recipients.addElement(name);
  }
  make("programs", 0755);
  const LogCapture logs;
  EXPECT_EXIT(
      {
        const bool stage = ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           ::mount(folder_.path("programs").c_str(), "/usr/sbin", nullptr, MS_BIND, nullptr) == 0;
        if (stage) static_cast<void>(send(recipients));
        ::_exit(stage ? 0 : 9);
      },
      testing::ExitedWithCode(0), "");
  const std::string errors = logs.errors();
  const std::size_t first = errors.find("Unable to send an e-mail to ");
  EXPECT_NE(errors.find(", no more are sent in this run"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("Unable to send an e-mail to ", first + 1), std::string::npos) << errors;
}

TEST_F(Messages, WithoutConfigurationAndInDemonstrations) {
  const LogCapture logs;
  useConfiguration(nullptr);
  ConfigFile record(nullptr);
  ListFile users(nullptr);
  users.addElement("bob");
  setDebugLevel(1);
  const std::string shown = printed([&] {
    EXPECT_EQ(Ticket().notifyAdmins("named", "S", nullptr, 1), 0);
    EXPECT_EQ(Ticket().messageUsers("S", "M", &users), 0);
    EXPECT_EQ(Ticket().sendSystemMessage(record, &users, 0, false), 0);
  });
  setDebugLevel(0);
  EXPECT_NE(shown.find("sys_conf=NULL : cannot call notifyAdmins(\"named\", \"S\", \"\", 1)\n"), std::string::npos);
  EXPECT_NE(shown.find("sys_conf=NULL : cannot call messageUsers(\"S\", \"M\")\n"), std::string::npos);
  EXPECT_NE(logs.errors().find("sys_conf=NULL : cannot call messageUsers(\"S\", \"M\")\n"), std::string::npos);
  put("conf/demo", "");
  useConfiguration(&conf_);
  EXPECT_EQ(Ticket().notifyAdmins("named", nullptr, nullptr, 0), 1);
  EXPECT_EQ(Ticket().messageUsers("S", "M", &users), 1);
  EXPECT_EQ(Ticket().sendSystemMessage(record, &users, 0, true), 1);
  EXPECT_EQ(content("admin/next_ticket.number"), "41\n");
  EXPECT_FALSE(exists(folder_.path("tickets/000")));
}
