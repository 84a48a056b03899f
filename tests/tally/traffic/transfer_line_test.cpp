#include "tally/traffic/transfer_line.h"

#include "support/fixtures.h"

// Lines about real transfers: names with blanks, quotes and line feeds, broken-off ones.
TEST(TransferLine, WhatTheServersWrote) {
  using Sums = std::map<std::string, unsigned long long>;
  const struct {
    const char* file;
    bool isPureftpd;
    Sums want;
  } cases[] = {
      {"proftpd.bytes", false, {{"bob", 73'036}, {"sales@example.com", 3'918'156}}},
      {"pureftpd.clf", true, {{"bob", 8'507}, {"sales@example.com", 3'940'661}}},
      {"pureftpd.w3c", true, {{"bob", 8'507}, {"sales@example.com", 139'573}}},
      {"pureftpd.xferlog", true, {{"bob", 8'507}, {"sales@example.com", 3'940'661}}},
      {"pureftpd.stats", true, {}},
  };
  for (const auto& c : cases) {
    std::istringstream lines(fixture(std::string("traffic/") + c.file));
    Sums sums;
    TransferReader read = nullptr;
    int met = 0;
    for (std::string line; std::getline(lines, line); ++met) {
      Transfer transfer;
      if (met == 0) read = c.isPureftpd ? pureftpdReader(line) : readProftpdLine;
      if (read == nullptr || !read(line, transfer)) continue;
      EXPECT_EQ(transfer.from, "127.0.0.1") << line;
      sums[std::string(transfer.user)] += transfer.bytes;
    }
    EXPECT_GT(met, 10) << c.file;
    EXPECT_EQ(sums, c.want) << c.file;
  }
}

TEST(TransferLine, OddLines) {
  for (const char* line : {"", "RETR", "RETR 5", "RETR - 127.0.0.1 1 bob", "RETR 5 127.0.0.1 1", "RETR 5 127.0.0.1 1 ",
                           "DELE 5 127.0.0.1 1 bob", "RETR -5 127.0.0.1 1 bob",
                           "RETR 99999999999999999999 127.0.0.1 1 bob", "RETR 5  1 bob"}) {
    Transfer transfer;
    EXPECT_FALSE(readProftpdLine(line, transfer)) << line;
  }
  for (const char* line :
       {"", "127.0.0.1 - bob [23/Nov/2026] \"GET /a\" 200", "127.0.0.1 - bob [x] \"GET /a\" 404 5",
        "127.0.0.1 - bob \"GET /a\" 200 5", "127.0.0.1 - [x] \"GET /a\" 200 5",
        "2026-11-23 00:42:10 127.0.0.1 []deleted /a 226 bob 5", "2026-11-23 00:42:10 127.0.0.1 []sent /a 226 5",
        "Mon Nov 23 00:42:16 2026 0 127.0.0.1 5 /a b _ d r bob ftp 1 * c",
        "Mon Nov 23 00:42:16 2026 0 127.0.0.1 5 /a b _ i r ftp 1 * c"}) {
    EXPECT_EQ(pureftpdReader(line), nullptr) << line;
  }
  Transfer transfer;
  const char* const line = "Mon Nov  3 00:42:16 2026 0 ::1 5 /a b _ i r a b@x ftp 1 * i";
  const TransferReader read = pureftpdReader(line);
  ASSERT_TRUE(read != nullptr && read(line, transfer));
  EXPECT_EQ(transfer.user, "a b@x");
}
