#include "core/sys/log.h"

#include "core/sys/random.h"
#include "support/fixtures.h"

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
    EXPECT_TRUE(holds(lines, want)) << want;
  }
  EXPECT_TRUE(holds(capture.system(), ": done\n"));
  EXPECT_TRUE(holds(capture.security(), ": ***HACKER WARNING\n"));
}

TEST(Log, StampsByTheCalendar) {
  ::setenv("TZ", "UTC0", 1);
  ::tzset();
  Log log;
  for (const auto& [now, stamp, text] :
       Rows<long long, const char*, const char*>{{1'774'958'405, "2026:03:31-12:00:05", "Mar 31, 2026 at 12:00"},
                                                 {1'798'761'599, "2026:12:31-23:59:59", "Dec 31, 2026 at 23:59"},
                                                 {1'798'761'600, "2027:01:01-00:00:00", "Jan 1, 2027 at 00:00"}}) {
    const FixedClock clock(now);
    EXPECT_STREQ(log.getLogTime(), stamp);
    EXPECT_STREQ(log.getCurrentTime(), text);
  }
  ::unsetenv("TZ");
  ::tzset();
}

TEST(Log, FallsBackToStandardOutputAndKeepsErrno) {
  setLogTargets(nullptr);
  EXPECT_EQ(printed([] { errorLog("early %s", "words"); }), "early words\n");
  const LogTargets nowhere{"/nowhere/e", "/nowhere/s", "/nowhere/x", "/nowhere/l", false};
  setLogTargets(&nowhere);
  const auto say = [] {
    errno = EXDEV;
    errorLog("err"), systemLog("sys"), securityLog("sec"), errorLogAndDebug(11, "too");
    EXPECT_EQ(errno, EXDEV);
  };
  EXPECT_EQ(printed(say, 0), "sys\n");
  EXPECT_EQ(
      printed(say, 10),
      "Error opening /nowhere/e: No such file or directory\nerr\nError opening /nowhere/s: No such file or directory\n"
      "sys\nError opening /nowhere/x: No such file or directory\nError opening /nowhere/e: No such file or "
      "directory\ntoo\n");
  setLogTargets(nullptr);
}

TEST(Log, DebugsByLevelAndMarksTheLocation) {
  EXPECT_EQ(printed([] { debug(1000, "hidden"); }, 999) + printed([] { debug(1000, "shown %d", 1); }, 1000),
            "shown 1\n");
  set_program_location("%s", std::string(400, 'x').c_str());
  EXPECT_EQ(std::string(get_program_location()), std::string(255, 'x'));
}

TEST(Random, IsEvenAndWithinItsBounds) {
  std::map<int, int> counts;
  for (int i = 0; i < 60000; ++i) ++counts[getRandNumber(-2, 3, i % 100 == 0)];
  EXPECT_EQ(counts.size(), 6U);
  for (const auto& [number, count] : counts) EXPECT_NEAR(count, 10000, number < -2 || number > 3 ? 0 : 600) << number;
  EXPECT_EQ(getRandNumber(5, 5) + getRandNumber(5, 4), 10);
  std::set<bool> signs;
  for (int i = 0; i < 200; ++i) signs.insert(getRandNumber(INT_MIN, INT_MAX) > 0);
  EXPECT_EQ(signs.size(), 2U);
  EXPECT_NE(getRandText(20), getRandText(20));
}
