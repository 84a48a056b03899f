#include "tally/traffic/account_bill.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>

#include "core/sys/fail_point.h"
#include "core/sys/privileges.h"
#include "support/panel_folder.h"
#include "tally/traffic/tally_file.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

class Server : public PanelFolder {
 public:
  Server() {
    for (const char* name : {"users/bob", "logs"}) makeFolder(name);
    conf.userdata = path("users").c_str();
    conf.apachelogdir = path("logs").c_str();
  }
  void serve(const std::string& file, const std::string& lines) const {
    std::ofstream(path(file), std::ios::app) << lines;
  }
  /// A tally of bob's two hosts; the web bytes that it read, -1 when it could not be entered. `meanwhile` happens once
  /// the logs have been put aside.
  double tally(const std::function<void()>& meanwhile = [] {}) const {
    const AsUser panel(kPanelUser);
    ByteLogs run(conf);
    if (!run.begin([](std::string_view host) { return host != "other.example"; })) return -1;
    meanwhile();
    AccountBill bill(run, "bob");
    TrafficParts parts;
    for (const char* host : {"bob.example", "www.bob.example"}) {
      const ByteSums sums = bill.host(host);
      parts.down += sums.total - sums.upload;
      parts.up += sums.upload;
    }
    parts.panel = bill.noted("ZorvaneUsage.bytes");
    if (!bill.enter(parts)) return -1;
    run.sawEverything();
    return parts.total();
  }
  double billed() const { return getTallyTotal(path("users/bob/bandwidth.tally").c_str()); }
  std::string left() const {
    std::string names;
    for (const char* folder : {"logs", "users/bob"}) {
      for (const auto& entry : std::filesystem::directory_iterator(path(folder))) {
        if (entry.path().filename() != "bandwidth.tally") names += entry.path().filename().string() + " ";
      }
    }
    return names;
  }
  /// A minute later: the locks of the killed are nobody's.
  void dropLocks() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path(""))) {
      if (entry.path().extension() == ".lock") std::filesystem::remove(entry.path());
    }
  }
  void serveAll() const {
    serve("logs/bob.example.bytes", "100 5\n-\n1000\n");
    serve("logs/www.bob.example.bytes", "30 -5\n");
    serve("users/bob/ZorvaneUsage.bytes", "7=type=panel&time=1\n");
  }
};

}  // namespace

TEST(AccountBill, BillsEveryByteOnceWhereverItIsKilled) {
  for (int steps = 0;; ++steps) {
    const Server server;
    server.serveAll();
    // The first is killed, and so is the one after it, at its first steps; the third goes on.
    const std::string plan = "*:kill:" + std::to_string(steps);
    const int ended = inAProcessOfItsOwn([&] {
      setFailPlan(plan.c_str());
      return server.tally() >= 0 ? 1 : 0;
    });
    server.dropLocks();
    if (steps % 3 == 0) server.serve("logs/bob.example.bytes", "10000\n");
    inAProcessOfItsOwn([&] {
      setFailPlan(("*:kill:" + std::to_string(steps / 2)).c_str());
      return server.tally() >= 0 ? 1 : 0;
    });
    server.dropLocks();
    ASSERT_GE(server.tally(), 0);
    EXPECT_DOUBLE_EQ(server.billed(), steps % 3 == 0 ? 11142 : 1142) << steps;
    EXPECT_EQ(server.left(), "") << steps;
    if (ended == 1) break;
    ASSERT_LT(steps, 200);
  }
}

TEST(AccountBill, BillsALogThatIsWrittenOnToWhereItEnds) {
  const Server server;
  server.serveAll();
  std::ofstream web(server.path("logs/bob.example.bytes"), std::ios::app);
  EXPECT_EQ(server.tally(), 1142);
  {
    const int more = 200;
    web << more << "\n40" << std::flush;
    EXPECT_EQ(server.tally(), more);
    web << "000\n" << std::flush;
    EXPECT_EQ(inAProcessOfItsOwn([&] {
                setFailPlan("byte_logs.write:ENOSPC");
                return server.tally() < 0 ? 1 : 0;
              }),
              1);
    EXPECT_EQ(server.tally(), 40000);
  }
  web << "5\n";
  web.close();
  EXPECT_EQ(server.tally(), 5);
  EXPECT_EQ(server.tally(), 0);
  EXPECT_EQ(server.billed(), 1142 + 200 + 40000 + 5);
  EXPECT_EQ(server.left(), "");
  EXPECT_TRUE(std::filesystem::is_empty(server.path("admin/state/billing")));
}

TEST(AccountBill, LeavesWhatTheServersWriteAfterTheirLogsWerePutAsideToTheNextTally) {
  const Server server;
  server.serveAll();
  EXPECT_EQ(server.tally([&] { server.serve("logs/bob.example.bytes", "7\n"); }), 1142);
  EXPECT_EQ(server.left(), "bob.example.bytes ");
  EXPECT_EQ(server.tally(), 7);
  EXPECT_EQ(server.left(), "");
}
