#include "tally/traffic_ledger.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/fail_point.h"
#include "support/fixed_clock.h"
#include "support/panel_folder.h"
#include "tally/disk_breakdown.h"
#include "tally/home_traffic.h"
#include "tally/mail_counting.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

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
  PanelFolder panel_;
};

}  // namespace

TEST_F(Ledger, WhatCannotBeEnteredStays) {
  const FixedClock clock(1'800'000'000);
  const auto bill = [](const char* plan, unsigned long long bytes) {
    TrafficLedger ledger("test", "bandwidth.tally", "ftp");
    EXPECT_TRUE(ledger.open());
    setFailPlan(plan);
    ledger.add("bob", bytes);
    ledger.add("gone", 1);
    const int good = ledger.enter();
    setFailPlan(nullptr);
    return good;
  };
  // The note cannot be written: nothing is billed, and nothing waits.
  EXPECT_FALSE(bill("traffic_ledger.*:ENOSPC,safe_write.*:ENOSPC", 100));
  EXPECT_EQ(tally("bob"), "");
  // A line falls short: it is taken back, and billed with the next.
  EXPECT_TRUE(bill("traffic_ledger.write:short", 20));
  EXPECT_EQ(tally("bob"), "");
  EXPECT_TRUE(bill(nullptr, 3));
  EXPECT_EQ(tally("bob"), "23=type=ftp&time=1800000001\n");
  EXPECT_TRUE(bill(nullptr, 4));
  EXPECT_EQ(tally("bob"), "23=type=ftp&time=1800000001\n4=type=ftp&time=1800000002\n");
  EXPECT_EQ(modeOf(panel_.path("users/bob/bandwidth.tally")), 0600U);
  EXPECT_FALSE(exists(panel_.path("users/gone")));
}

TEST_F(Ledger, HalfALineOfAPowerCutIsReplaced) {
  const char* const others = "1=type=tally\n";
  for (const std::string half : {"", "2", "23=type=ft", "9=type", "23=type=ftp&time=5\n"}) {
    panel_.makeFolder("admin/traffic");
    writeText(panel_.path("admin/traffic/test"), "bytes_bob=23\nentering=1\ntime=5\n");
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
  std::filesystem::create_symlink(panel_.path("canary"), panel_.path("users/bob/bandwidth.tally"));
  first.add("bob", 5);
  EXPECT_TRUE(first.enter());
  EXPECT_FALSE(exists(panel_.path("canary")));
}

TEST_F(Ledger, MarksKnowTheirLog) {
  const std::string path = panel_.path("log");
  const auto isMarked = [&](const LogMark& mark) {
    const Descriptor file(sys::open(path.c_str(), O_RDONLY));
    return mark.isOf(file.get());
  };
  writeText(path, "one\ntwo\nthree\n");
  const Descriptor file(sys::open(path.c_str(), O_RDWR));
  const LogMark mark = LogMark::fromText(LogMark::at(file.get(), 8).text().c_str());
  EXPECT_EQ(mark.offset, 8);
  EXPECT_TRUE(isMarked(mark));
  // Emptied, and grown past the place with something else.
  ASSERT_EQ(sys::ftruncate(file.get(), 4), 0);
  EXPECT_FALSE(isMarked(mark));
  writeText(path, "ONE\nTWO\nthree\nfour\n");
  EXPECT_FALSE(isMarked(mark));
  // The same text in another file.
  writeText(panel_.path("new"), "one\ntwo\nthree\n");
  std::filesystem::rename(panel_.path("new"), path);
  EXPECT_FALSE(isMarked(mark));
  const Descriptor copy(sys::open(path.c_str(), O_RDONLY));
  EXPECT_TRUE(mark.fits(copy.get()));
  EXPECT_EQ(LogMark::fromText("1:2:-3:4").offset, 0);
  EXPECT_EQ(LogMark::fromText(nullptr).offset, 0);
}

TEST_F(Ledger, DiskBreakdownHoldsAnyName) {
  DiskBreakdown items("bob");
  items.du_detail(123, "/home/bob/a&b=c\nd", true);
  items.du_detail(5, "databases", false);
  ASSERT_TRUE(items.write()) << panel_.logs.errors();
  ListFile list(panel_.path("users/bob/du_breakdown.list").c_str());
  list.setUser(nullptr);
  list.keepOrder = true;
  ASSERT_TRUE(list.readFile());
  ASSERT_EQ(list.size(), 2);
  ConfigFile item(nullptr);
  item.fillFromPost(list.getElementAt(0));
  EXPECT_STREQ(item.getValue("size"), "123");
  EXPECT_STREQ(item.getValue("descriptor"), "/home/bob/a&b=c\nd");
  EXPECT_STREQ(item.getValue("counted"), "yes");
}

TEST(HomeTraffic, Lines) {
  const std::string far = "5 " + std::string(204'800, 'x') + "~bob/";
  const struct {
    std::string line;
    const char* account;
    unsigned long long bytes;
  } cases[] = {
      {"512 \"GET /~bob/index.html HTTP/1.1\"", "bob", 512},
      {"512\t/~bob", "bob", 512},
      {"0 /~bob\\x", "bob", 0},
      {"5 /~bob\tx", "bob", 5},
      {"5 ~ann ~bob", "ann", 5},
      {"512 /bob/", "", 0},
      {"512 /~", "", 0},
      {"512", "", 0},
      {"- /~bob/", "", 0},
      {"-5 /~bob/", "", 0},
      {"12x /~bob/", "", 0},
      {"~bob 5", "", 0},
      {"5 /~../../etc/", "", 0},
      {"5 /~%62ob/", "", 0},
      {"99999999999999999999 /~bob/", "", 0},
      {far, "", 0},
  };
  for (const auto& c : cases) {
    HomeTraffic traffic;
    ASSERT_EQ(readHomeTraffic(c.line, traffic), *c.account != '\0') << c.line.substr(0, 80);
    if (*c.account == '\0') continue;
    EXPECT_EQ(traffic.account, c.account) << c.line;
    EXPECT_EQ(traffic.bytes, c.bytes) << c.line;
  }
}

TEST(MailCounting, ModesAndPartitions) {
  PanelFolder panel;
  constexpr const char* kOne = "/dev/sda1 / ext4 rw 0 0\nproc /proc proc rw 0 0\ntmpfs /run tmpfs rw 0 0\n";
  const std::string bound = std::string(kOne) + "/dev/sda1 /var ext4 rw 0 0\n";
  const std::string homes = std::string(kOne) + "server:/homes /home nfs4 rw 0 0\n";
  const std::string var = std::string(kOne) + "/dev/sdb1 /var ext4 rw 0 0\n";
  const struct {
    const char* name;
    int mode;
    const char* partition;
    std::string table;
    int want;
  } cases[] = {
      {"on top", 1, "/", kOne, 1},
      {"not on top", 2, "/home", homes, 0},
      {"one partition", 0, "/home", kOne, 0},
      {"bound twice", 0, "/home", bound, 0},
      {"homes apart", 0, "/home", homes, 1},
      {"no var", 0, "/", homes, 0},
      {"var apart", 0, "/", var, 1},
      {"no such mode", 3, "/home", var, 1},
      {"no partition named", 0, nullptr, var, 1},
  };
  for (const auto& c : cases) EXPECT_EQ(countEmailFor(c.mode, c.partition, partitionsIn(c.table)), c.want) << c.name;
  EXPECT_NE(panel.logs.errors().find("count is 3. Should either be one of 0,1,2\n"), std::string::npos);
}

TEST(MailCounting, RotationScripts) {
  PanelFolder panel;
  panel.makeFolder("scripts");
  std::filesystem::permissions(panel.path(""), std::filesystem::perms(0755));
  for (const char* folder : {"scripts", "scripts/custom"}) {
    std::filesystem::permissions(panel.path(folder), std::filesystem::perms(0755));
    const std::string script = panel.path(std::string(folder) + "/rotate_email_usage.sh");
    writeText(script, "#!/bin/sh\necho $(id -u) " + std::string(folder) + " >> " + panel.path("ran") + "\n");
    std::filesystem::permissions(script, std::filesystem::perms(0755));
    rotate_email_usage(&panel.conf);
  }
  EXPECT_EQ(contentOf(panel.path("ran")), "0 scripts\n0 scripts/custom\n") << panel.logs.errors();
  writeText(panel.path("scripts/custom/rotate_email_usage.sh"), "#!/bin/sh\necho broken; exit 3\n");
  rotate_email_usage(&panel.conf);
  EXPECT_NE(panel.logs.errors().find("/rotate_email_usage.sh : broken\n"), std::string::npos);
}
