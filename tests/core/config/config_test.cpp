#include "core/config/config.h"

#include <sched.h>
#include <sys/mount.h>

#include "core/record/config_file.h"
#include "support/fixtures.h"

namespace {
std::string have(const ConfigFile& settings, const char* key) {
  const char* value = settings.getValue(key);
  return value == nullptr ? "(absent)" : value;
}

class ConfigTest : public testing::Test {
 protected:
  std::string path(const char* name) const { return folder_.path(name); }
  std::string logged(const char* name = "error.log") const { return contentOf(path(name)); }
  /// The folder's file with these lines, and `logdir` set to the folder.
  std::string fileWith(const std::string& lines, const char* name = "zorvane.conf") const {
    writeText(path(name), "logdir=" + folder_.path() + "\n" + lines);
    return path(name);
  }

 private:
  Folder folder_;
};

using ConfigDeathTest = ConfigTest;

/// Gives this process mounts of its own, and a list of accounts without the panel's.
void hidePanelUser(const std::string& copy) {
  const std::string shell =
      "mount --make-rprivate / && grep -v ^zvadmin: /etc/passwd >" + copy + " && mount --bind " + copy + " /etc/passwd";
  if (!setRootPriv() || ::unshare(CLONE_NEWNS) != 0 || std::system(shell.c_str()) != 0) ::_exit(99);
}
}  // namespace

TEST_F(ConfigTest, TakesEachValueFromTheFileOrItsDefault) {
  for (const auto& [name, lines, key, want] : Rows<const char*, const char*, const char*, const char*>{
           {"record layer", "", "brutecount", "100"},
           {"field layer, 64 bits", "", "max_read_to_memory_size", "524288000"},
           {"fallback", "", "pure_pw", "/usr/bin/pure-pw"},
           {"file over field layer", "clear_brute_log_entry_time=0\n", "clear_brute_log_entry_time", "0"},
           {"empty number, record layer", "brutecount=\n", "brutecount", "100"},
           {"no finite number", "check_load=nan\n", "check_load", "10"},
           {"empty fallback", "pipe_log=\n", "pipe_log", "/dev/null"},
           {"empty web site", "zv_website=\n", "zv_website", "https://www.zorvane.example"},
           {"value with separator", "load_top_string=top -b=1\n", "load_top_string", "top -b=1"},
           {"more than 32 bits", "hsts=63072000000\n", "hsts", "63072000000"},
           {"old name", "connect_timeout=3\n", "request_timeout", "3"},
           {"old name beside the new", "connect_timeout=3\nrequest_timeout=4\n", "request_timeout", "4"},
           {"handshake beyond timeout", "timeout=11\n", "handshake_timeout", "11"},
           {"longest session", "session_minutes=35791\n", "session_minutes", "35791"},
           {"shortest name", "max_username_length=8\n", "max_username_length", "8"},
           {"longest name", "max_username_length=14\n", "max_username_length", "14"}}) {
    SCOPED_TRACE(name);
    const Config config(fileWith(lines).c_str());
    EXPECT_FALSE(config.error);
    EXPECT_TRUE(config.result.isNull());
    ConfigFile settings(nullptr);
    EXPECT_EQ(config.checkFile(&settings), 1);
    EXPECT_EQ(have(settings, key), want);
  }
}

TEST_F(ConfigTest, CorrectsAndTells) {
  const std::string doubled =
      "Your ext_quota_partitions value (/home) matches the quota_partition value (/home) which would return double the "
      "quota values. Ignoring ext_quota_partitions";
  const std::string bothServers = "nginx=1 and litespeed=1 are both set.  Please only select one for the zorvane.conf";
  const std::string noLogs = "logs_to_keep=0 keeps no log: what is rotated or archived is deleted at once";
  const std::string username = "You're trying to use a max_username_length value of ";
  const std::string session = "You're trying to use a session_minutes value of ";
  for (const auto& [lines, key, want, level, told, result] :
       Rows<const char*, const char*, const char*, int, std::string, const char*>{
           {"timeout=20\nhandshake_timeout=21\n", "handshake_timeout", "20", 100,
            "handshake_timeout(21) is larger than timeout(20). Lowering handshake_timeout to match timeout.\n", ""},
           {"timeout=19\n", "request_timeout", "19", 100,
            "request_timeout(20) is larger than timeout(19). Lowering request_timeout to match timeout.\n", ""},
           {"session_minutes=0\n", "session_minutes", "60", 0, session + "0.  Ignoring you and using 60 instead.\n",
            ""},
           {"session_minutes=35792\n", "session_minutes", "60", 0,
            session + "35792.  Ignoring you and using 60 instead.\n", ""},
           {"max_username_length=7\n", "max_username_length", "10", 0,
            username + "7.  Ignoring you and using 10 instead (valid: 8-14)\n", ""},
           {"max_username_length=15\n", "max_username_length", "10", 0,
            username + "15.  Ignoring you and using 10 instead (valid: 8-14)\n", ""},
           {"crypt_method=7\n", "crypt_method", "1", 0,
            "Please use a crypt_method of 1,5 or 6\nValue '7' is not allowed.\n", ""},
           {"timeout=20\next_quota_partitions=/home\n", "ext_quota_partitions", "", 1, doubled + "\n", doubled.c_str()},
           {"timeout=20\nlogs_to_keep=0\n", "logs_to_keep", "0", 1, noLogs + "\n", noLogs.c_str()},
           {"logs_to_keep=1\n", "logs_to_keep", "1", 1, "", ""},
           {"nginx=1\nnginx_proxy=1\n", "nginx", "1", 0,
            "nginx=0 should be set when nginx_proxy=1 (httpd is the main server).  Please change nginx=1 to nginx=0\n",
            ""},
           {"nginx=1\nlitespeed=1\n", "nginx", "1", 0, bothServers + "\n", bothServers.c_str()}}) {
    SCOPED_TRACE(lines);
    const std::string file = fileWith(lines);
    Config config(nullptr);
    EXPECT_EQ(printed([&] { EXPECT_EQ(config.readFile(file.c_str(), 0, 0), 1); }, level), told);
    EXPECT_FALSE(config.error);
    EXPECT_EQ(std::string(config.result.view()), *result == '\0' ? "" : std::string(result) + "<br>\n");
    ConfigFile settings(nullptr);
    config.checkFile(&settings);
    EXPECT_EQ(have(settings, key), want);
  }
}

TEST_F(ConfigTest, DirectsTheLogsForAsLongAsItIsLoaded) {
  const auto told = [](const char* message) { return printed([=] { errorLog("%s", message); }); };
  {
    Config config(fileWith("timeout=30\nconnect_timeout=25\n").c_str());
    EXPECT_TRUE(
        holds(logged(), "DEPRECATED: connect_timeout=25 has been replaced with request_timeout. Please change"));
    EXPECT_TRUE(told("loaded").empty() && holds(logged(), "loaded"));
    config.setErrLog(path("errortaskq.log").c_str());
    EXPECT_TRUE(told("overridden").empty() && holds(logged("errortaskq.log"), "overridden"));
    EXPECT_TRUE(config.readFile() == 1 && config.readFile("/nonexistent", 0, 0) == 0);
    EXPECT_EQ(told("failed"), "failed\n");
    EXPECT_EQ(config.readFile(), 1);
  }
  EXPECT_EQ(told("gone"), "gone\n");
}

TEST_F(ConfigTest, AnotherFileReplacesEverythingAndClearsTheFailure) {
  Config config(path("absent.conf").c_str());
  EXPECT_TRUE(config.error);
  EXPECT_TRUE(config.result.view().starts_with(joined("Unable to open ", path("absent.conf"), " for reading.<br>\n")));
  config.setFilename(fileWith("servername=one\nbrutecount=3\ntaskqueue=/q\n", "one.conf").c_str());
  EXPECT_TRUE(config.readFile() == 1 && !config.error && config.result.isNull());
  EXPECT_EQ(joined(config.servername, config.secondTaskQueue), "one/q.zv");
  config.setUserLanguage("de");
  config.setFilename(fileWith("ns1=two\n", "two.conf").c_str());
  EXPECT_EQ(config.readFile(), 1);
  EXPECT_TRUE(config.servername.isNull() && config.userLanguage.isNull() && config.secondTaskQueue.isNull());
  EXPECT_EQ(config.brutecount, 100);
  EXPECT_TRUE(config.readFile(nullptr, 0, 0) == 0 && config.error);
  EXPECT_EQ(config.result.view(), "Filename is null<br>\n");
}

TEST_F(ConfigTest, EffectiveSettingsReadBackAsTheyAre) {
  const char* lines =
      "ftpsep=%\nhsts=-5\ncheck_load=0.25\nfm_hour_offset=-1.5\nSSL=1\nmaxfilesize=18446744073709551615\n";
  const Config config(fileWith(lines).c_str());
  ConfigFile first(path("effective.conf").c_str());
  first.setUser(kPanelUser);
  config.checkFile(&first);
  ASSERT_EQ(first.writeFile(), 1) << first.result.orEmpty();
  const Config again(path("effective.conf").c_str());
  ConfigFile second(nullptr);
  again.checkFile(&second);
  ASSERT_EQ(second.size(), first.size());
  std::string sorted;
  for (long long i = 0; i < first.size(); ++i) {
    EXPECT_STREQ(second.getNameAt(i), first.getNameAt(i));
    EXPECT_STREQ(second.getValueAt(i), first.getValueAt(i)) << first.getNameAt(i);
    sorted += joined(first.getNameAt(i), "=", first.getValueAt(i), "\n");
  }
  EXPECT_EQ(printed([&] { EXPECT_EQ(config.checkFile(nullptr), 1); }), sorted);
  EXPECT_TRUE(sorted.starts_with("SSL=1\n")) << "capitals sort first";
}

TEST_F(ConfigDeathTest, WithoutThePanelUserNothingIsReadAndTheProcessEndsWhenAskedTo) {
  const std::string file = fileWith("brutecount=3\n"), accounts = path("passwd");
  const std::string conflict = fileWith("nginx=1\nlitespeed=1\n", "conflict.conf");
  const auto without = [&] {
    hidePanelUser(accounts);
    Config config(file.c_str());
    std::fputs(config.result.orEmpty(), stderr);
    ::_exit(config.error && config.brutecount == 100 && config.set_defaults() == 0 ? 7 : 8);
  };
  EXPECT_EXIT(without(), testing::ExitedWithCode(7),
              "^Cannot find the zvadmin user.  Make sure the zvadmin user exists in your system.<br>\n$");
  Config config(fileWith("").c_str());
  const auto exitsWithOne = testing::ExitedWithCode(1);
  EXPECT_EXIT(config.readFile("/nonexistent", 1, 0), exitsWithOne, "");
  EXPECT_EXIT(config.readFile(conflict.c_str(), 1, 0), exitsWithOne, "");
  EXPECT_EXIT((hidePanelUser(accounts), config.readFile("", 1, 1)), exitsWithOne, "");
  EXPECT_EQ(config.readFile(conflict.c_str(), 0, 0), 1);
}
