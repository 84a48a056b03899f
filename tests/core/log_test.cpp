#include "core/log.h"

#include <gtest/gtest.h>

#include "core/config_file.h"
#include "core/fail_point.h"
#include "core/privileges.h"
#include "core/text.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

TEST(Log, WritesOneHarmlessLineAMessage) {
  LogCapture capture;
  Log stamp;
  errorLog("plain %d", 7);
  errorLog("forged %s", "a\n2026:01:01-00:00:00: b\r\x1b[31m\ttab");
  errorLog("result %s", "one<br>\ntwo<br>\n");
  errorLog("ends itself\n\n");
  systemLog("done");
  securityLog("***HACKER WARNING");
  std::string lines = capture.errors();
  EXPECT_TRUE(::isdigit(lines[0]) && lines.substr(19, 2) == ": ") << lines;
  for (const char* want : {": plain 7\n", ": forged a\\x0A2026:01:01-00:00:00: b\\x0D\\x1B[31m\ttab\n",
                           ": result one<br>two<br>\n", ": ends itself\n\n\n"}) {
    EXPECT_NE(lines.find(want), std::string::npos) << want;
  }
  EXPECT_NE(capture.system().find(": done\n"), std::string::npos);
  EXPECT_NE(capture.security().find(": ***HACKER WARNING\n"), std::string::npos);
}

TEST(Log, FallsBackToStandardOutput) {
  setLogTargets(nullptr);
  EXPECT_EQ(printed([] { errorLog("early %s", "words"); }), "early words\n");
  const LogTargets nowhere{"/nowhere/e", "/nowhere/s", "/nowhere/x", "/nowhere/l", false};
  setLogTargets(&nowhere);
  const struct {
    int level;
    const char* want;
  } cases[] = {
      {0, "sys\n"},
      {1,
       "Error opening /nowhere/e: No such file or directory\nError opening /nowhere/s: No such file or directory\nsys\n"
       "Error opening /nowhere/x: No such file or directory\n"},
      {10,
       "Error opening /nowhere/e: No such file or directory\nerr\nError opening /nowhere/s: No such file or directory\n"
       "sys\nError opening /nowhere/x: No such file or directory\n"},
  };
  for (const auto& c : cases) {
    setDebugLevel(c.level);
    EXPECT_EQ(printed([] {
                errorLog("err");
                systemLog("sys");
                securityLog("sec");
              }),
              c.want);
  }
  setDebugLevel(0);
  setLogTargets(nullptr);
}

TEST(Log, DebugsByLevelAndMarksTheLocation) {
  setDebugLevel(999);
  EXPECT_EQ(printed([] { debug(1000, "hidden"); }), "");
  setDebugLevel(1000);
  EXPECT_EQ(printed([] { debug(1000, "shown %d", 1); }), "shown 1\n");
  setDebugLevel(0);
  set_program_location("%s", std::string(400, 'x').c_str());
  EXPECT_EQ(std::string(get_program_location()), std::string(255, 'x'));
  for (const auto& [name, want] : {std::pair{"Jan", 1}, {"dEC", 12}, {"Janu", 0}, {"", 0}}) {
    EXPECT_EQ(Log::get_month_number(name), want);
  }
}

TEST(Text, OrdersAndEdits) {
  const struct {
    const char *a, *b;
    int want;
  } cases[] = {{"a", "b", -1},   {"a", "ab", -1},   {"", "a", 1}, {nullptr, "a", 1},
               {nullptr, "", 0}, {"\xff", "a", -1}, {"x", "x", 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(strcomp(c.a, c.b), c.want);
    EXPECT_EQ(strcomp(c.b, c.a), -c.want);
  }
  Text result = Text::copyOf("");
  EXPECT_EQ(fail(result, "Unable to open ", "/x", " for reading."), 0);
  stringCat(result, "more", nullptr, std::string("!"));
  EXPECT_EQ(result.view(), "Unable to open /x for reading.<br>\nmore!");
  std::string value;
  EXPECT_TRUE(getParam("name=v", "name", value) && value == "v");
  EXPECT_FALSE(getParam("nam", "name", value));
  Text moved = Text::adopt(newString(3, "a", nullptr, "b"));
  Text owner = std::move(moved);
  EXPECT_STREQ(owner, "ab");
}

// Needs root: only a process of root's can take on another identity.
TEST(Privileges, AFailedSwitchEndsAtNobody) {
  if (realIds().user != 0) GTEST_SKIP() << "needs root";
  LogCapture capture;
  const KeepPrivileges keep;
  const Ids nobody = nobodyIds();
  {
    const AsRoot root;
    EXPECT_TRUE(root.taken() && effectiveIds() == kRootIds);
  }
  EXPECT_TRUE(effectiveIds() == nobody);
  setRootPriv();
  {
    const AsUser unknown("no-such-user");
    EXPECT_FALSE(unknown.taken());
    EXPECT_TRUE(effectiveIds() == nobody);
  }
  setRootPriv();
  EXPECT_EXIT(
      {
        setFailPlan("identity.seteuid:EPERM");
        setUserPriv("daemon", 1);
        ::_exit(0);
      },
      testing::ExitedWithCode(1), "");
  EXPECT_NE(capture.errors().find("Sys:setUserPriv(no-such-user):uid==9999"), std::string::npos);
  EXPECT_NE(capture.errors().find("Unable to switch to uid "), std::string::npos);
}
