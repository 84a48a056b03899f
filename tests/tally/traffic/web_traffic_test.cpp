#include "tally/traffic/web_traffic.h"

#include "support/fixtures.h"
#include "support/panel_folder.h"
#include "tally/traffic/transfer_line.h"

TEST(WebTraffic, LinesAreReadAsNumbers) {
  const PanelFolder panel;
  const std::string path = panel.path("site.bytes");
  for (const auto& [name, log, total, uploaded] : Rows<const char*, std::string, double, double>{
           {"two numbers", "100 50\n1234567 89012345678\n", 100 + 50 + 1234567 + 89012345678, 89012345728},
           {"negative, dash, empty, words", "100 -5\n-100 5\n-\n\nnothing\n-nan 5\n", 100, 0},
           {"fractions, exponents, signs, hexadecimal", "1.5 2.5\n1e2\n+4 5\n0x10 0x1p4\n", 145, 23.5},
           {"more digits than an integer has", "100000000000000000000 1\n", 1e20 + 1, 1},
           {"not finite", "inf 5\n1e999\nnan\n5 infinity\n", 10, 5},
           {"no number behind the first, or glued", "12abc 5\n12 abc\n12-5\n12+5\n", 4 * 12 + 5, 5},
           {"carriage returns", "100 50\r\n\r\n", 150, 50},
           {"a NUL ends its line", std::string("5\0009\n7\n", 6), 12, 0},
           {"unfinished", "100\n200", 100, 0},
           {"eight digits and more", "12345678\n123456789 1234567\n0 0\n", 12345678 + 123456789 + 1234567.0,
            1234567}}) {
    // Alone, and among lines such as all logs are full of.
    for (const int others : {0, 40}) {
      std::string plain;
      for (int i = 0; i < others; ++i) plain += "9700 300\n";
      writeText(path, plain + log + (log.back() == '\n' ? plain : ""));
      const int plainLines = log.back() == '\n' ? 2 * others : others;
      double upload = 1000;
      EXPECT_DOUBLE_EQ(getHttpTotal(path.c_str(), upload), total + 10'000 * plainLines) << name;
      EXPECT_EQ(upload, 1000 + uploaded + 300 * plainLines) << name;
    }
  }
  double upload = 3;
  for (const std::string& file : {panel.path("none"), panel.path("admin"), std::string()}) {
    EXPECT_EQ(getHttpTotal(file.empty() ? nullptr : file.c_str(), upload), 0);
  }
  EXPECT_EQ(upload, 3);
}

TEST(WebTraffic, BlocksMeetInsideLines) {
  PanelFolder panel;
  std::string log;
  double total = 0;
  for (int i = 1; i < 100'000; ++i) {
    log += std::to_string(i) + (i % 3 == 0 ? " 1\n" : "\n");
    total += i + (i % 3 == 0 ? 1 : 0);
  }
  writeText(panel.path("log"), log);
  double upload = 0;
  EXPECT_EQ(getHttpTotal(panel.path("log").c_str(), upload), total);
  EXPECT_EQ(upload, 33'333);
}

// Lines about real transfers: names with blanks, quotes and line feeds, broken-off ones.
TEST(TransferLine, WhatTheServersWrote) {
  using Sums = std::map<std::string, unsigned long long>;
  for (const auto& [file, isPureftpd, want] :
       Rows<const char*, bool, Sums>{{"proftpd.bytes", false, {{"bob", 73'036}, {"sales@example.com", 3'918'156}}},
                                     {"pureftpd.clf", true, {{"bob", 8'507}, {"sales@example.com", 3'940'661}}},
                                     {"pureftpd.w3c", true, {{"bob", 8'507}, {"sales@example.com", 139'573}}},
                                     {"pureftpd.xferlog", true, {{"bob", 8'507}, {"sales@example.com", 3'940'661}}},
                                     {"pureftpd.stats", true, {}}}) {
    std::istringstream lines(fixture(std::string("traffic/") + file));
    Sums sums;
    TransferReader read = nullptr;
    int met = 0;
    for (std::string line; std::getline(lines, line); ++met) {
      Transfer transfer;
      if (met == 0) read = isPureftpd ? pureftpdReader(line) : readProftpdLine;
      if (read == nullptr || !read(line, transfer)) continue;
      EXPECT_EQ(transfer.from, "127.0.0.1") << line;
      sums[std::string(transfer.user)] += transfer.bytes;
    }
    EXPECT_GT(met, 10) << file;
    EXPECT_EQ(sums, want) << file;
  }
}

TEST(TransferLine, WhatIsNoTransferIsNotBilled) {
  Transfer transfer;
  for (const char* line : {"RETR 5 127.0.0.1 1", "RETR 5 127.0.0.1 1 ", "DELE 5 127.0.0.1 1 bob",
                           "RETR -5 127.0.0.1 1 bob", "RETR 99999999999999999999 127.0.0.1 1 bob", "RETR 5  1 bob"}) {
    EXPECT_FALSE(readProftpdLine(line, transfer)) << line;
  }
  for (const char* line : {"127.0.0.1 - bob [x] \"GET /a\" 200", "127.0.0.1 - bob [x] \"GET /a\" 404 5",
                           "2026-11-23 00:42:10 127.0.0.1 []deleted /a 226 bob 5",
                           "Mon Nov 23 00:42:16 2026 0 127.0.0.1 5 /a b _ d r bob ftp 1 * c"}) {
    EXPECT_EQ(pureftpdReader(line), nullptr) << line;
  }
}
