#include "core/panel/hook_script.h"

#include "core/panel/system_info.h"
#include "core/record/config_file.h"
#include "support/fixtures.h"

namespace {
class Hook : public ::testing::Test {
 protected:
  Hook() { ::chmod(folder_.path().c_str(), 0755); }
  Folder folder_;
  std::string script_ = folder_.path("hook.sh");
};
}  // namespace

TEST_F(Hook, AnswersByStatusAndOutput) {
  const LogCapture logs;
  for (const auto& [name, script, result, error] : Rows<const char*, const char*, const char*, const char*>{
           {"result", "#!/bin/sh\necho one; echo two\n", "one\ntwo", ""},
           {"nothing", "#!/bin/sh\n", "", ""},
           {"error", "#!/bin/sh\necho 'not today'; exit 1\n", "", "not today"},
           {"error on standard error", "#!/bin/sh\necho 'not today' >&2; exit 1\n", "", "not today"},
           {"silent error", "#!/bin/sh\nexit 3\n", "", "exit status 3"},
           {"hangs", "#!/bin/sh\nsleep 60\n", "", "no answer within 1 seconds"},
           {"no interpreter", "#!/no/such\n", "", "exit status 127"}}) {
    writeText(script_, script);
    ::chmod(script_.c_str(), 0700);
    const HookAnswer answer = executeIfExists(script_.c_str(), std::vector<Variable>{}, *name == 'h' ? 1 : 20);
    EXPECT_TRUE(answer.ran) << name;
    EXPECT_EQ(answer.result, result) << name;
    EXPECT_EQ(answer.error, error) << name;
  }
  const HookAnswer none = executeIfExists(folder_.path("none").c_str(), std::vector<Variable>{});
  EXPECT_FALSE(none.ran || none.failed());
}

TEST_F(Hook, RunsAsRootWithItsVariables) {
  ConfigFile request(nullptr);
  request.setParam("username", "bob");
  request.setParam("file", "/home/bob's \"x\"\t$(id)");
  request.setParam("LD_PRELOAD", "/tmp/evil.so");
  request.setParam("select-0", "odd");
  writeScript(script_, "id -u; echo \"$username,$file,$LD_PRELOAD\"; env | grep -c -e select -e LD_\n");
  ASSERT_TRUE(switchEffective(nobodyIds()));
  const HookAnswer answer = executeIfExists(script_.c_str(), &request);
  EXPECT_TRUE(effectiveIds() == nobodyIds());
  ASSERT_TRUE(switchEffective(kRootIds));
  // The count of 0 makes grep fail.
  EXPECT_EQ(answer.error, "0\nbob,/home/bob's \"x\"\t$(id),\n0");
}

TEST_F(Hook, OneTimeForMany) {
  HookBudget budget(1);
  EXPECT_FALSE(budget.isSpent());
  writeScript(script_, "sleep 60\n");
  EXPECT_EQ(budget.run(script_.c_str(), {}, 60).error, "no answer within 1 seconds");
  EXPECT_TRUE(budget.isSpent());
}

TEST(HookVariables, OnlyHarmlessNamesAreExported) {
  std::istringstream harmless("username reseller file error_result select0 _x ONE LOAD action A1");
  for (std::string name; harmless >> name;) EXPECT_TRUE(isExportableName(name)) << name;
  std::istringstream obeyed(
      "PATH HOME LANG LD_PRELOAD LD_ BASH_ENV BASH_FUNC_ls ENV IFS SHELLOPTS PS4 GCONV_PATH PYTHONPATH PERL5LIB "
      "PERLLIB "
      "TAR_OPTIONS GZIP MALLOC_CHECK_ GLIBC_TUNABLES http_proxy GIT_SSH_COMMAND RSYNC_RSH TMPDIR 1a a-b a=b \xc3\xa4");
  for (std::string name; obeyed >> name;) EXPECT_FALSE(isExportableName(name)) << name;
  for (const char* name : {"", "a b", "a\n", " a"}) EXPECT_FALSE(isExportableName(name)) << name;
  EXPECT_FALSE(isExportableName(std::string(200, 'a')));
  EXPECT_FALSE(isExportableName(std::string_view("a\0b", 3)));

  std::vector<std::string> environment;
  addVariables(environment, {{"cut", std::string("a\0b", 3)}, {"big", std::string(300000, 'x')}, {"PATH", "x"}});
  EXPECT_TRUE(environment.size() == 2 && environment[0] == "cut=a" && environment[1].size() == 128U * 1024 - 1);
  const LogCapture logs;
  std::vector<Variable> many;
  for (int i = 0; i < 20; ++i) many.emplace_back("v" + std::to_string(i), std::string(100000, 'x'));
  environment.clear();
  addVariables(environment, many);
  EXPECT_EQ(environment.size(), 10U);
  EXPECT_TRUE(holds(logs.errors(), "leaving out v10 and all after it"));
}

TEST_F(Hook, RefusesWhatOthersCouldHavePlanted) {
  const std::string mark = folder_.path("mark");
  const auto runs = [&](const std::string& change) {
    const std::string anew =
        joined("h=", script_, "; rm -rf $h; echo '#!/bin/sh\ntouch ", mark, "' >$h; chmod 700 $h; ");
    EXPECT_EQ(::system((anew + change).c_str()), 0) << change;
    return executeIfExists(script_.c_str(), std::vector<Variable>{});
  };
  for (const char* change : {"chown nobody $h", "chmod 777 $h", "chgrp nogroup $h; chmod 770 $h",
                             "mv $h $h.real; ln -s $h.real $h", "rm $h; mkdir $h", "chmod 777 $(dirname $h)"}) {
    const LogCapture logs;
    const HookAnswer answer = runs(change);
    EXPECT_TRUE(answer.failed() && !answer.ran) << change;
    EXPECT_FALSE(exists(mark)) << change;
    EXPECT_TRUE(holds(logs.security(), "Refusing to run the script")) << change;
  }
  EXPECT_TRUE(runs("chmod 755 $(dirname $h)").ran);
  EXPECT_TRUE(exists(mark));
}

TEST(SystemInfo, TakesNoOptionForAName) {
  EXPECT_EQ(resolveIPv4("-s") + resolveIPv4("a b") + resolveIPv4("localhost"), "127.0.0.1");
  double one = -1, five = -1, fifteen = -1;
  EXPECT_TRUE(getLoadAverage(one, five, fifteen) == 1 && fifteen >= 0);
}
