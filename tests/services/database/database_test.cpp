#include <csignal>
#include <filesystem>

#include "maria_db.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

using DatabaseServerTest = MariaDb;

TEST_F(DatabaseServerTest, SizesAndOwners) {
  std::string expected;
  for (const std::string name : {"A_x", "a_\"q``'%\xC3\xA9=&", "a_b_c", "a_empty", "a_x", "zone"}) {
    const std::string use = joined("CREATE DATABASE IF NOT EXISTS `", name, "`; USE `", name, "`; ");
    if (name != "a_empty") {
      sql(joined(use, "CREATE TABLE t (v TEXT, INDEX (v(9))) ENGINE=Aria; CREATE VIEW w AS SELECT * FROM t; ",
                 "INSERT INTO t SELECT REPEAT(seq, 50) FROM seq_1_to_",
                 std::to_string(100 * (name.size() + (name < "B")))));
    }
    expected += sql(use +
                    "SELECT DATABASE(), COALESCE(SUM(DATA_LENGTH + INDEX_LENGTH), 0) FROM "
                    "information_schema.TABLES WHERE BINARY TABLE_SCHEMA = BINARY DATABASE()");
  }
  std::vector<DatabaseUsage> all;
  const auto read = [&] { return asRunner([&] { return readDatabases(all); }); };
  const auto shown = [&] {
    std::string lines;
    for (const DatabaseUsage& database : all) lines += database.name + "\t" + std::to_string(database.bytes) + "\n";
    return lines;
  };
  ASSERT_TRUE(read()) << panel.logs.errors();
  EXPECT_EQ(shown(), expected);
  const Databases databases(all, DatabaseOwners(accounts));
  ASSERT_EQ(databases.of("a").size(), 3U);
  EXPECT_EQ(databases.of("a").back().name, "a_x");
  EXPECT_GT(Databases::bytesOf(databases.of("a_b")), 0);
  EXPECT_TRUE(databases.of("zone").empty());

  isUp(false);
  EXPECT_FALSE(read());
  EXPECT_EQ(shown(), expected);
  EXPECT_EQ(errorLines(), 1) << panel.logs.errors();
  const std::string helper = panel.path("libexec/zvdb");
  ASSERT_EQ(::unlink(helper.c_str()), 0);
  EXPECT_FALSE(read());
  EXPECT_TRUE(holds(panel.logs.errors(), helper + " is not installed"));
  writeText(helper, "#!/bin/sh\necho 'database=a_x&bytes=1'\n");
  ASSERT_EQ(::chmod(helper.c_str(), 0755), 0);
  EXPECT_FALSE(read()) << "an answer without an end";
  EXPECT_EQ(shown(), expected);
  panel.conf.mysql = false;
  EXPECT_TRUE(read() && all.empty());
  EXPECT_EQ(errorLines(), 3) << panel.logs.errors();
}

TEST_F(DatabaseServerTest, LockedAndUnlocked) {
  for (const char* user : {"a@localhost", "a_x@localhost", "a_x@'10.%'", "a_y@localhost", "a_b_z@localhost"}) {
    ASSERT_EQ(sql(joined("CREATE USER ", user, " IDENTIFIED BY 'secret'")), "");
  }
  ASSERT_EQ(sql("ALTER USER a_y@localhost ACCOUNT LOCK"), "");
  const DatabaseOwners owners(accounts);
  const auto lock = [&] { return asRunner([&] { return lockDatabases("a", owners, *this, result); }); };
  const auto unlock = [&] {
    const int outcome = asRunner([&] { return unlockDatabases("a", owners, *this, result); });
    kept.reset();
    return outcome;
  };
  const auto carryOut = [&] { return asRunner([&] { return carryOutDatabaseWishes(*this), 1; }); };
  const auto in = [&] {
    std::string users;
    for (const char* user : {"a", "a_x", "a_y", "a_b_z"})
      users += sql("SELECT USER()", user).starts_with(user) ? joined(user, " ") : "";
    return users;
  };
  ASSERT_EQ(in(), "a a_x a_b_z ");
  mayKeep = 0;
  EXPECT_FALSE(lock());
  EXPECT_EQ(in(), "a a_x a_b_z ");
  kept.reset();
  mayKeep = 1;
  Child session = Child::start(quiet(client("SELECT SLEEP(300)", "a_x")));
  const std::string running = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE INFO LIKE '%(300)'";
  for (int i = 0; i < 600 && sql(running) != "1\n"; ++i) ::usleep(100'000);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(lock()) << result.orEmpty();
  EXPECT_EQ(*kept, std::set<std::string>{"a_y@localhost"});
  EXPECT_EQ(in(), "a_b_z ");
  EXPECT_NE(session.finish().status, 0);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(unlock());
  EXPECT_EQ(in(), "a a_x a_b_z ");

  isUp(false);
  EXPECT_TRUE(lock() && !kept && unlock());
  isUp(true);
  carryOut();
  EXPECT_EQ(in(), "a a_x a_b_z ") << "an unlock takes the lock back that waits";
  isUp(false);
  EXPECT_TRUE(lock());
  const long lines = errorLines();
  for (int i = 0; i < 3; ++i) carryOut();
  EXPECT_EQ(errorLines(), lines + 1) << panel.logs.errors();
  isUp(true);
  carryOut();
  EXPECT_EQ(in(), "a_b_z ");
  EXPECT_EQ(*kept, std::set<std::string>{"a_y@localhost"});
  isUp(false);
  EXPECT_TRUE(unlock() && lock());
  EXPECT_EQ(*kept, std::set<std::string>{"a_y@localhost"}) << "what an earlier suspension locked was free";
  EXPECT_TRUE(unlock());
  isUp(true);
  carryOut();
  EXPECT_EQ(in(), "a a_x a_b_z ");
  EXPECT_FALSE(exists(panel.path("admin/state/database_wishes")));
}

TEST_F(DatabaseServerTest, DropsWhatBelongsToTheAccountAlone) {
  ASSERT_EQ(sql("CREATE DATABASE `a_b``c'\"%`; CREATE DATABASE a_x; CREATE DATABASE axx; CREATE DATABASE a_b_c;"
                "CREATE TABLE a_x.t (k INT); CREATE TABLE axx.t (k INT); CREATE USER 'a_it''s\"`%'@'%', z@localhost, "
                "a_b_u@localhost; GRANT SELECT ON `a\\_x`.* TO z@localhost; GRANT SELECT ON axx.* TO z@localhost;"
                "GRANT SELECT ON a_x.t TO z@localhost; GRANT SELECT ON axx.t TO z@localhost"),
            "");
  ListFile dropped(nullptr), stayed(nullptr), found(nullptr);
  const auto drop = [&](const char* account) {
    return asRunner([&] { return dropDatabases(account, DatabaseOwners(accounts), dropped, stayed, result); });
  };
  isUp(false);
  EXPECT_FALSE(drop("a"));
  isUp(true);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(drop("a")) << result.orEmpty();
  EXPECT_EQ(dropped.size(), 3);
  EXPECT_TRUE(dropped.existElement("a_x") && dropped.existElement("a_b`c'\"%") && stayed.size() == 0);
  EXPECT_EQ(sql("SELECT SCHEMA_NAME FROM information_schema.SCHEMATA WHERE SCHEMA_NAME LIKE 'a%'; SELECT User FROM "
                "mysql.global_priv WHERE User LIKE 'a%'; SELECT Db FROM mysql.db; SELECT Db FROM mysql.tables_priv "
                "WHERE User = 'z'"),
            "a_b_c\naxx\na_b_u\naxx\naxx\n");

  const auto wouldBelong = [&](const char* account) {
    found.empty();
    const auto ask = [&] { return databasesThatWouldBelongTo(account, accounts, found, result); };
    return asRunner(ask) ? found.size() : -1;
  };
  EXPECT_EQ(wouldBelong("a_b_c"), 0);
  EXPECT_EQ(wouldBelong("a_b_u"), 1);
  accounts.deleteElement("a_b");
  EXPECT_EQ(wouldBelong("a_b"), 2);
  EXPECT_EQ(wouldBelong("panel"), 0) << "the panel's own log-in is nobody's";
  isUp(false);
  EXPECT_EQ(wouldBelong("c"), -1);
}

TEST_F(DatabaseServerTest, ReadsALoginThatNobodyElseCould) {
  const std::string file = panel.path("mysql.conf");
  std::vector<DatabaseUsage> all;
  const auto reads = [&] { return asRunner([&] { return readDatabases(all); }); };
  const auto refuses = [&](const char* words) {
    return !reads() && panel.logs.errors().find(words) != std::string::npos;
  };
  const Ids owner = idsOf(kPanelUser);
  ASSERT_TRUE(::chown(file.c_str(), owner.user, owner.group) == 0 && reads());
  for (const mode_t mode : {0640U, 0604U, 0620U}) {
    ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    EXPECT_TRUE(refuses("others than its owner have permissions")) << mode;
  }
  ASSERT_TRUE(::chmod(file.c_str(), 0600) == 0 && ::chown(file.c_str(), nobodyIds().user, 0) == 0);
  EXPECT_TRUE(refuses("belongs neither to root nor"));
  std::filesystem::rename(file, file + ".real");
  ASSERT_TRUE(::symlink((file + ".real").c_str(), file.c_str()) == 0 && ::lchown(file.c_str(), owner.user, 0) == 0);
  EXPECT_TRUE(refuses("Too many levels of symbolic links"));
  ASSERT_EQ(::unlink(file.c_str()), 0);
  isUp(true);
  EXPECT_TRUE(reads());
}

TEST_F(DatabaseServerTest, ShowsItsPasswordToNobody) {
  ASSERT_EQ(::kill(server->pid(), SIGSTOP), 0);
  const pid_t asking = ::fork();
  if (asking == 0) {
    std::vector<DatabaseUsage> all;
    ::_exit(readDatabases(all) ? 0 : 1);
  }
  // The helper waits for a server that does not answer.
  std::string process;
  const std::string file = panel.path("mysql.conf"), uid = joined("\nUid:\t", std::to_string(nobodyIds().user), "\t");
  for (int i = 0; i < 600 && process.empty(); ++i, ::usleep(100'000)) {
    for (const std::filesystem::path& entry : std::filesystem::directory_iterator("/proc")) {
      const bool isHelper =
          contentOf(entry / "cmdline").find("zvdb" + std::string(1, '\0') + file) != std::string::npos;
      if (isHelper && contentOf(entry / "status").find(uid) != std::string::npos) process = entry;
    }
  }
  ASSERT_NE(process, "");
  EXPECT_EQ((contentOf(process + "/cmdline") + contentOf(process + "/environ")).find("el=9"), std::string::npos);
  setNoPriv();
  EXPECT_LT(::open((process + "/mem").c_str(), O_RDONLY), 0);
  setRootPriv();
  ASSERT_EQ(::kill(server->pid(), SIGCONT), 0);
  EXPECT_EQ(::waitpid(asking, nullptr, 0), asking);
}
