// A panel with a database server of its own, and the accounts "a" and "a_b". The test keeps what a suspension found.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <set>

#include "core/process/child.h"
#include "core/record/list_file.h"
#include "core/sys/privileges.h"
#include "services/database/locks.h"
#include "services/database/usage.h"
#include "support/panel_folder.h"

namespace zvtaskq::test {

class MariaDb : public testing::Test, public LockedBefore {
 protected:
  void SetUp() override {
    for (const char* name : {"run", "libexec", "users/a", "users/a_b"}) panel.makeFolder(name);
    ASSERT_EQ(::symlink(ZVTASKQ_ZVDB, panel.path("libexec/zvdb").c_str()), 0);
    std::vector<std::string> options = {"--no-defaults", "--datadir=" + panel.path("run/data"), "--user=mysql",
                                        "--tmpdir=" + panel.path("run"), "--innodb-log-file-size=4M"};
    std::vector<std::string> first = options;
    first.insert(first.end(), {"--auth-root-authentication-method=normal", "--skip-test-db"});
    ASSERT_EQ(runChild(ChildPlan::program("/usr/bin/mariadb-install-db", first)).status, 0);
    options.insert(options.end(), {"--skip-networking", "--socket=" + panel.path("run/socket")});
    server.emplace(Child::start(quiet(ChildPlan::program("/usr/sbin/mariadbd", options))));
    for (int i = 0; i < 600 && sql("SELECT 1") != "1\n"; ++i) ::usleep(100'000);
    sql("CREATE USER panel@localhost IDENTIFIED BY \"pan'el=9 %+&\\\\z\"; GRANT ALL ON *.* TO panel@localhost");
    panel.conf.mysql = true;
    panel.conf.userdata = panel.path("users").c_str();
    panel.conf.mysqlconf = panel.path("mysql.conf").c_str();
    isUp(true);
    for (const char* account : {"a", "a_b"}) accounts.addElement(account);
  }
  void TearDown() override {
    for (const std::string& log : {panel.logs.errors(), panel.logs.system(), panel.logs.security()}) {
      EXPECT_EQ(log.find("el=9"), std::string::npos) << log;
    }
  }

  /// Whether the panel finds the server at its socket.
  void isUp(bool up) {
    writeText(panel.path("mysql.conf"),
              joined("user=panel\npasswd=pan'el=9 %+&\\z\nsocket=", panel.path("run/socket"), up ? "" : ".gone", "\n"));
    ASSERT_EQ(::chmod(panel.path("mysql.conf").c_str(), 0600), 0);
  }
  static ChildPlan quiet(ChildPlan plan) {
    plan.output = plan.errors = ChildPlan::Stream::discard;
    return plan;
  }
  /// The client, as the server's root or as another user.
  ChildPlan client(const std::string& statements, const std::string& user) {
    ChildPlan plan =
        ChildPlan::program("/usr/bin/mariadb", {"--no-defaults", "-NB", "--default-character-set=utf8mb4", "-S",
                                                panel.path("run/socket"), "-u", user, "-e", statements});
    if (user != "root") plan.arguments.push_back("-psecret");
    plan.errors = ChildPlan::Stream::collect;
    return plan;
  }
  std::string sql(const std::string& statements, const std::string& user = "root") {
    return runChild(client(statements, user)).output;
  }
  /// What the room does, from nobody's identity and with root's afterwards.
  template <class Work>
  auto asRunner(Work work) {
    setNoPriv();
    const auto outcome = work();
    setRootPriv();
    return outcome;
  }
  long errorLines() const {
    const std::string log = panel.logs.errors();
    return std::count(log.begin(), log.end(), '\n');
  }

  int keep(const char*, const ListFile& users) override {
    kept.emplace();
    for (int i = 0; i < users.size(); ++i) kept->insert(users.getElementAt(i));
    return mayKeep;
  }
  bool read(const char*, ListFile& users) override {
    for (const std::string& user : kept.value_or(std::set<std::string>())) users.addElement(user.c_str());
    return kept.has_value();
  }

  PanelFolder panel;
  ListFile accounts{nullptr};
  Text result;
  std::optional<std::set<std::string>> kept;
  int mayKeep = 1;
  std::optional<Child> server;
};

}  // namespace zvtaskq::test
