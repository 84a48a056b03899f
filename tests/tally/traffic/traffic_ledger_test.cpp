#include "tally/traffic/traffic_ledger.h"

#include "support/panel_folder.h"
#include "tally/traffic/home_traffic.h"

namespace {
class Ledger : public ::testing::Test {
 protected:
  Ledger() {
    panel_.makeFolder("users/bob");
    panel_.makeFolder("users/ann");
    panel_.conf.userdata = panel_.path("users").c_str();
  }
  std::string tally(const char* account) const {
    return contentOf(panel_.path(std::string("users/") + account + "/bandwidth.tally"));
  }
  /// A note of an earlier run.
  void leave(const std::string& note) const {
    panel_.makeFolder("admin/state/traffic");
    writeText(panel_.path("admin/state/traffic/test"), note);
  }
  PanelFolder panel_;
};
}  // namespace

TEST_F(Ledger, WhatIsBilledIsNotBilledAgainWhenItCannotBeReadOrFlushed) {
  for (const auto& [plan, error] :
       {std::pair("traffic_ledger.read:EIO:1", "Unable to read "), {"traffic_ledger.fsync:EIO", "Unable to flush "}}) {
    const LogCapture said;
    const std::string billed = "23=type=ftp&time=5\n";
    leave("bytes_bob=23\nentering=1\ntime=5\n");
    writeText(panel_.path("users/bob/bandwidth.tally"), billed);
    for (const char* now : {plan, ""}) {
      TrafficLedger ledger("test", "bandwidth.tally", "ftp");
      failing(now, [&] { return ledger.open() && ledger.enter(); });
      EXPECT_EQ(tally("bob"), billed) << plan;
    }
    EXPECT_TRUE(holds(said.errors(), error + panel_.path("users")));
    EXPECT_FALSE(holds(contentOf(panel_.path("admin/state/traffic/test")), "bytes_bob")) << plan;
  }
}

TEST_F(Ledger, ATimeFarAheadIsTakenForNow) {
  const FixedClock clock(1'800'000'000);
  for (const auto& [stored, want] : {std::pair("4100000000", "1800000000"), std::pair("1800000060", "1800000061"),
                                     std::pair("-5", "1800000000"), std::pair("1700000000", "1800000000")}) {
    const LogCapture said;
    leave(std::string("time=") + stored + "\n");
    writeText(panel_.path("users/bob/bandwidth.tally"), "");
    TrafficLedger ledger("test", "bandwidth.tally", "ftp");
    ASSERT_TRUE(ledger.open());
    ledger.add("bob", 1);
    ASSERT_TRUE(ledger.enter());
    EXPECT_EQ(tally("bob"), std::string("1=type=ftp&time=") + want + "\n");
    EXPECT_EQ(said.errors().empty(), *stored == '1') << said.errors();
  }
}

TEST_F(Ledger, NamesWithoutAnAccountCostNothing) {
  {
    TrafficLedger ledger("test", "bandwidth.tally", "ftp");
    ASSERT_TRUE(ledger.open());
    for (int i = 0; i < 1000; ++i) ledger.add("made-up-" + std::to_string(i), 5);
    ledger.add("ann", 1);
    // The note that a killed run leaves has no more than it has in mind.
    EXPECT_FALSE(failing("traffic_ledger.fsync:EIO", [&] { return ledger.enter(); }));
  }
  const std::string note = contentOf(panel_.path("admin/state/traffic/test"));
  EXPECT_TRUE(holds(note, "bytes_ann=1\n"));
  EXPECT_FALSE(holds(note, "made-up"));
  panel_.conf.userdata = panel_.path("nowhere").c_str();
  EXPECT_FALSE(TrafficLedger("test", "bandwidth.tally", "ftp").open()) << "who is an account cannot be told";
}

TEST_F(Ledger, WhatCannotBeEnteredStays) {
  const FixedClock clock(1'800'000'000);
  const auto bill = [](const char* plan, unsigned long long bytes) {
    TrafficLedger ledger("test", "bandwidth.tally", "ftp");
    EXPECT_TRUE(ledger.open());
    ledger.add("bob", bytes);
    ledger.add("gone", 1);
    return failing(plan, [&] { return ledger.enter(); });
  };
  // The note cannot be written: nothing is billed, and nothing waits.
  EXPECT_FALSE(bill("traffic_ledger.*:ENOSPC,safe_write.*:ENOSPC", 100));
  EXPECT_EQ(tally("bob"), "");
  // A line falls short: it is taken back, and billed with the next.
  EXPECT_TRUE(bill("traffic_ledger.write:short", 20));
  EXPECT_EQ(tally("bob"), "");
  EXPECT_TRUE(bill("", 3));
  EXPECT_EQ(tally("bob"), "23=type=ftp&time=1800000001\n");
  EXPECT_TRUE(bill("", 4));
  EXPECT_EQ(tally("bob"), "23=type=ftp&time=1800000001\n4=type=ftp&time=1800000002\n");
  EXPECT_EQ(modeOf(panel_.path("users/bob/bandwidth.tally")), 0600U);
  EXPECT_FALSE(exists(panel_.path("users/gone")));
}

TEST_F(Ledger, HalfALineOfAPowerCutIsReplaced) {
  const char* const others = "1=type=tally\n";
  for (const std::string half : {"", "2", "23=type=ft", "9=type", "23=type=ftp&time=5\n"}) {
    leave("bytes_bob=23\nentering=1\ntime=5\n");
    writeText(panel_.path("users/bob/bandwidth.tally"), others + half);
    TrafficLedger ledger("test", "bandwidth.tally", "ftp");
    ASSERT_TRUE(ledger.open() && ledger.enter()) << panel_.logs.errors();
    const std::string between = half == "9=type" ? half + "\n" : "";
    EXPECT_EQ(tally("bob"), others + between + "23=type=ftp&time=5\n") << half;
  }
}

TEST_F(Ledger, OneAtATimeAndNoLinks) {
  TrafficLedger first("test", "bandwidth.tally", "ftp"), second("other", "bandwidth.tally", "ftp");
  EXPECT_TRUE(first.open());
  EXPECT_FALSE(second.open());
  fs::create_symlink(panel_.path("canary"), panel_.path("users/bob/bandwidth.tally"));
  first.add("bob", 5);
  EXPECT_TRUE(first.enter());
  EXPECT_FALSE(exists(panel_.path("canary")));
}

TEST_F(Ledger, MarksKnowTheirLog) {
  const std::string path = panel_.path("log");
  writeText(path, "one\ntwo\nthree\n");
  const Descriptor file(sys::open(path.c_str(), O_RDWR));
  const LogMark mark = LogMark::fromText(LogMark::at(file.get(), 8).text().c_str());
  EXPECT_EQ(mark.offset, 8);
  EXPECT_TRUE(mark.isOf(file.get()));
  // Emptied, and grown past the place with something else.
  for (const char* now : {"one\n", "ONE\nTWO\nthree\nfour\n"}) {
    writeText(path, now);
    EXPECT_FALSE(mark.isOf(file.get())) << now;
  }
  // The same text in another file.
  writeText(panel_.path("new"), "one\ntwo\nthree\n");
  const Descriptor copy(sys::open(panel_.path("new").c_str(), O_RDONLY));
  EXPECT_TRUE(mark.fits(copy.get()) && !mark.isOf(copy.get()));
  EXPECT_EQ(LogMark::fromText("1:2:-3:4").offset + LogMark::fromText(nullptr).offset, 0);
}

TEST(HomeTraffic, Lines) {
  HomeTraffic traffic;
  for (const auto& [line, account, bytes] : {std::tuple("512 \"GET /~bob/index.html HTTP/1.1\"", "bob", 512ULL),
                                             {"512\t/~bob", "bob", 512},
                                             {"0 /~bob\\x", "bob", 0},
                                             {"5 /~bob\tx", "bob", 5},
                                             {"5 ~ann ~bob", "ann", 5}}) {
    ASSERT_TRUE(readHomeTraffic(line, traffic)) << line;
    EXPECT_TRUE(traffic.account == account && traffic.bytes == bytes) << line;
  }
  const std::string far = "5 " + std::string(204'800, 'x') + "~bob/";
  for (const char* line : {"512 /bob/", "512 /~", "512", "- /~bob/", "-5 /~bob/", "12x /~bob/", "~bob 5",
                           "5 /~../../etc/", "5 /~%62ob/", "99999999999999999999 /~bob/", far.c_str()}) {
    EXPECT_FALSE(readHomeTraffic(line, traffic)) << std::string(line).substr(0, 80);
  }
  PanelFolder panel;
  panel.conf.allow_upper_case_username = panel.conf.allow_numeric_username = true;
  EXPECT_TRUE(readHomeTraffic("5 /~2Bob/x", traffic));
}
