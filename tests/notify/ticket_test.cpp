#include "notify/ticket.h"

#include <sched.h>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "notify/notice_limit.h"
#include "support/fixtures.h"

namespace {
/// A panel in a folder of its own, with its real user.
class Messages : public ::testing::Test {
 protected:
  void SetUp() override {
    ::chmod(folder_.path().c_str(), 0711);
    for (const char* name : {"tickets", "users", "admin", "conf"}) make(name, 0711);
    // As on a server: what is kept as nobody lives beside what nobody may not touch.
    ASSERT_EQ(::chown(folder_.path("admin").c_str(), getUID(kPanelUser), nobodyIds().group), 0);
    ::chmod(folder_.path("admin").c_str(), 01731);
    put("admin/admin.list", "boss\n");
    put("admin/tickets.list", "");
    put("admin/next_ticket.number", "41\n");
    ASSERT_EQ(conf_.set_defaults(), 1);
    conf_.serverpath = folder_.path().c_str();
    conf_.servername = "server.example";
    conf_.ticketsdir = folder_.path("tickets").c_str();
    conf_.admindir = folder_.path("admin").c_str();
    conf_.userdata = folder_.path("users").c_str();
    useConfiguration(&conf_);
  }
  void TearDown() override { useConfiguration(nullptr); }
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
  int send(std::initializer_list<const char*> names, bool includeAdmins = false) {
    ListFile recipients(nullptr);
    for (const char* name : names) recipients.addElement(name);
    ConfigFile record(nullptr);
    record.setParam("subject", "Two\nlines");
    record.setParam("message", "Body |x|\n=1\n");
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

TEST_F(Messages, OneRecipientOutOfReachDoesNotKeepTheOthers) {
  addUser("bob");
  addUser("ann");
  put("canary", "untouched");
  fs::remove(folder_.path("users/ann/tickets.list"));
  fs::create_symlink(folder_.path("canary"), folder_.path("users/ann/tickets.list"));
  const LogCapture logs;
  EXPECT_EQ(send({"ann", "../admin", "ghost", "bob"}), 0);
  EXPECT_FALSE(isLost_);
  EXPECT_EQ(content("users/bob/tickets.list"), "000000041=type=message&new=yes\n");
  EXPECT_EQ(content("canary") + content("admin/tickets.list"), "untouched");
  for (const char* name : {"ann", "../admin", "ghost"}) {
    EXPECT_TRUE(holds(result_, joined("Can't read ", name, "'s tickets file to add ticket<br>\n")));
  }
  const std::string users = folder_.path("users/");
  EXPECT_TRUE(holds(logs.errors(), "Ticket::deliverMessage::Can't read " + users + "ghost/tickets.list: "));
  // The write that fails is that of the list: one for the counter and one for the header go before it.
  EXPECT_EQ(failing("safe_write.rename:ENOSPC:2", [&] { return send({"bob"}); }), 0);
  EXPECT_TRUE(isLost_);
  EXPECT_EQ(result_, "Unable to write bob's tickets file to add ticket<br>\n");
  EXPECT_TRUE(holds(logs.errors(), "Tickets::deliverMessage::Unable to write " + users + "bob/tickets.list"));
}

TEST_F(Messages, ReachAdministratorsByTheirTypeToo) {
  addUser("chief");
  addUser("clerk");
  put("users/chief/user.conf", "usertype=admin\n");
  put("users/clerk/user.conf", "usertype=reseller\n");
  ASSERT_EQ(send({"chief", "clerk"}), 1) << result_;
  EXPECT_EQ(content("admin/tickets.list"), "000000041=type=message&new=yes\n");
  EXPECT_EQ(content("users/chief/tickets.list"), "");
  EXPECT_EQ(content("users/clerk/tickets.list"), "000000041=type=message&new=yes\n");

  // Without the list of administrators there is their type still, and nobody more to tell.
  ASSERT_EQ(::unlink(folder_.path("admin/admin.list").c_str()), 0);
  const LogCapture logs;
  ASSERT_EQ(send({"chief", "clerk"}, true), 1) << result_;
  EXPECT_EQ(content("admin/tickets.list"), "000000041=type=message&new=yes\n000000042=type=message&new=yes\n");
  const std::string list = folder_.path("admin/admin.list");
  EXPECT_TRUE(holds(logs.errors(), "sendSystemMessage: include_admins: error reading " + list + ": Unable to open "));
  EXPECT_TRUE(holds(logs.errors(), "Unable to read: " + list + ": Unable to open "));
  EXPECT_EQ(Ticket().notifyAdmins("", "S", "M", 1), 0);
  EXPECT_FALSE(exists(folder_.path("tickets/000/043")));
}

TEST_F(Messages, KeepTheNameTheyCarry) {
  ConfigFile record(nullptr);
  record.setParam("name", "Somebody Else");
  record.setParam("subject", "S");
  ASSERT_EQ(Ticket().sendSystemMessage(record, nullptr, 0, false), 1);
  EXPECT_TRUE(holds(content("tickets/000/041/001.conf"), "name=Somebody Else\n"));
}

/// Whatever becomes of the counter: every message has a ticket of its own, and what is planted is neither followed nor
/// taken for a ticket.
TEST_F(Messages, NoNumberIsUsedTwice) {
  const struct {
    const char *name, *counter, *logged, *ticket, *next;
  } cases[] = {{"counted", "60\n", "", "060", "61\n"},
               {"emptied", "", "Ticket: Error reading ticket number from ", "061", "62\n"},
               {"no number", "abc\n", "Ticket: Error reading ticket number from ", "062", "63\n"},
               {"negative", "-7\n", "Ticket: Error reading ticket number from ", "063", "64\n"},
               {"put back", "60\n", "the number 60 of ", "064", "65\n"},
               {"missing", nullptr, "Can't open file ", "065", "66\n"},
               {"only listed", "", "Ticket: Error reading ticket number from ", "101", "102\n"},
               {"a link of that name", "150\n", "the number 150 of ", "151", "152\n"},
               {"full disk", "103\n", "Unable to write ", "152", "103\n"},
               {"locked", "103\n", "Can't get lock on ", "153", "103\n"}};
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
    EXPECT_EQ(send({}), name == "full disk" ? 0 : 1) << name << result_;
    setFailPlan(nullptr);
    EXPECT_EQ(content(joined("tickets/000/", c.ticket, "/001.msg")), "Body |x|\n=1\n") << name;
    EXPECT_FALSE(exists(folder_.path(joined("tickets/000/", c.ticket, "/002.msg")))) << name;
    EXPECT_EQ(content("admin/next_ticket.number"), c.next) << name;
    EXPECT_TRUE(holds(logs.errors(), c.logged)) << name;
    if (name == "locked") ::unlink(folder_.path("admin/next_ticket.number.lock").c_str());
  }
}

TEST_F(Messages, WritingFailsInItsOwnWords) {
  for (const auto& [plan, logged, result] : Rows<const char*, const char*, const char*>{
           {"ticket.mkdir:ENOSPC",
            "Ticket::writeTicket: Can't create directory: ", "Unable to create the ticket directory: "},
           {"ticket.open:EDQUOT:5", "Ticket::writeTicket::Error opening ", "Could not write the message"},
           {"ticket.write:short", "Ticket::writeTicket::Error opening ", "Could not write the message"},
           {"safe_write.rename:EIO:1", "Ticket::writeTicket::Error writing ",
            "Could not write message configuration file"}}) {
    const LogCapture logs;
    EXPECT_EQ(failing(plan, [&] { return send({}); }), 0) << plan;
    EXPECT_TRUE(isLost_) << plan;
    EXPECT_EQ(result_.find(result), 0U) << plan << result_;
    EXPECT_TRUE(holds(logs.errors(), logged)) << plan;
  }
  // The highest number there can be is taken.
  make("tickets/2147483", 0700);
  make("tickets/2147483/2147483647", 0700);
  put("admin/next_ticket.number", "");
  const LogCapture logs;
  EXPECT_EQ(send({}), 0);
  EXPECT_TRUE(holds(logs.errors(), "Couldn't get a ticket number for the system message"));
}

TEST_F(Messages, ServiceNoticesAreLimited) {
  const long long now = 1'800'000'000;
  const FixedClock clock(now);
  const std::string hourAgo = std::to_string(now - 3600), recently = std::to_string(now - 3599);
  const std::string active = "service_email_active=yes\n", last = "service_email_last_sent=";
  for (const auto& [settings, want, logged] :
       Rows<std::string, int, const char*>{{active + last + "0\n", 1, ""},
                                           {active + last + hourAgo + "\n", 1, ""},
                                           {active + last + recently + "\n", 0, ""},
                                           {"service_email_active=no\n" + last + "0\n", 0, ""},
                                           {last + "0\n", 0, ""},
                                           {active, 0, ""},
                                           {active + last + "99999999999\n", 1, "is set anew: 99999999999"},
                                           {active + last + "x\n", 1, "is set anew: x"}}) {
    const LogCapture logs;
    put("admin/admin.conf", settings, "nobody");
    EXPECT_EQ(mayNotifyOfService(), want) << settings;
    EXPECT_TRUE(effectiveIds() == kRootIds);
    EXPECT_EQ(content("admin/admin.conf"), want == 1 ? active + last + std::to_string(now) + "\n" : settings);
    EXPECT_TRUE(holds(logs.errors(), logged)) << settings;
    // Once for each hour.
    EXPECT_EQ(mayNotifyOfService(), 0) << settings;
  }
  const LogCapture logs;
  put("admin/admin.conf", active + last + "0\n", "nobody");
  EXPECT_EQ(failing("safe_write.rename:ENOSPC", [&] { return Ticket().notifyAdmins("named", nullptr, nullptr, 0); }),
            1);
  EXPECT_TRUE(holds(logs.errors(), "Unable to write " + folder_.path("admin/admin.conf") + ": "));
  ::unlink(folder_.path("admin/admin.conf").c_str());
  EXPECT_EQ(Ticket().notifyAdmins("named", nullptr, nullptr, 0), 1);
  EXPECT_TRUE(holds(logs.errors(), "Unable to read: " + folder_.path("admin/admin.conf") + ": "));
  EXPECT_FALSE(exists(folder_.path("tickets/000")));
}

/// In a process that sees a folder with nothing but a recorder in it as /usr/sbin.
TEST_F(Messages, GoByEmailInstead) {
  for (const char* name : {"boss", "chief", "mute"}) addUser(name);
  put("users/boss/user.conf", "username=boss\nusertype=admin\nemail=boss@boss.example,nonsense\nemail_on_message=no\n");
  put("users/chief/user.conf", "username=chief\nusertype=admin\nemail=chief@chief.example\n");
  put("admin/admin.list", "boss\nchief\nmute\n");
  make("programs", 0755);
  make("sent", 0711);
  writeScript(folder_.path("programs/sendmail"), "(id -un; echo $*; cat) >" + folder_.path("sent") + "/$$\n");
  const LogCapture logs;
  const int sent = inAProcessOfItsOwn([&] {
    const std::string lay = "mount --make-rprivate / && mount --bind " + folder_.path("programs") + " /usr/sbin";
    const bool stage = ::unshare(CLONE_NEWNS) == 0 && std::system(lay.c_str()) == 0;
    Ticket ticket;
    return stage ? ticket.notifyAdmins("named", nullptr, nullptr, 1, 1) + (ticket.isLost ? 2 : 0) : 9;
  });
  EXPECT_EQ(sent, 0);
  EXPECT_TRUE(holds(logs.errors(), "'nonsense' of account boss is no e-mail address"));
  EXPECT_TRUE(holds(logs.errors(), "There is no e-mail address of administrator mute"));
  std::string mails;
  for (const auto& entry : fs::directory_iterator(folder_.path("sent"))) mails += contentOf(entry.path());
  for (const char* want :
       {"zvadmin\n-t\nFrom: \"Message System\" <zvadmin@server.example>\nTo: <boss@boss.example>\n",
        "\nTo: <chief@chief.example>\nSubject: The service 'named' on server server.example is currently down\n"}) {
    EXPECT_TRUE(holds(mails, want)) << want;
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

TEST_F(Messages, WithoutConfigurationAndInDemonstrations) {
  useConfiguration(nullptr);
  ListFile users(nullptr);
  users.addElement("bob");
  const std::string shown = printed(
      [&] { EXPECT_EQ(Ticket().notifyAdmins("named", "S", nullptr, 1) + Ticket().messageUsers("S", "M", &users), 0); },
      1);
  EXPECT_TRUE(holds(shown, "sys_conf=NULL : cannot call notifyAdmins(\"named\", \"S\", \"\", 1)\n"));
  EXPECT_TRUE(holds(shown, "sys_conf=NULL : cannot call messageUsers(\"S\", \"M\")\n"));
  put("conf/demo", "");
  useConfiguration(&conf_);
  EXPECT_EQ(Ticket().notifyAdmins("named", nullptr, nullptr, 0) + Ticket().messageUsers("S", "M", &users), 2);
  EXPECT_EQ(send({"bob"}, true), 1);
  EXPECT_EQ(content("admin/next_ticket.number"), "41\n");
  EXPECT_FALSE(exists(folder_.path("tickets/000")));
}
