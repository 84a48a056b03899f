#include "tally/bruteforce/watch/check.h"

#include "tally/bruteforce/records/entry_log.h"
#include "tally/bruteforce/records/journal.h"
#include "tally/bruteforce/watch/brute_monitor.h"
#include "tally/bruteforce/watch/notices.h"

TEST_F(BruteMonitor, CountsEachFailureOnce) {
  write(failure("bob", "192.0.2.1") + "nothing\n" + failure("<b>", "192.0.2.1") + failure("eve", "::1"));
  pass();
  pass(kNow + 60);
  write(failure("bob", "192.0.2.1"));
  pass(kNow + 120);
  EXPECT_EQ(data("brute_ip.data"),
            "192.0.2.1=first_entry=1800000000&last_entry=1800000120&sshd5=3\n"
            "::1=first_entry=1800000000&last_entry=1800000000&sshd5=1\n");
  EXPECT_EQ(counts("brute_user.data"), (Counts{{"bob", 2}, {"eve", 1}, {"&lt;b&gt;", 1}}));
  EXPECT_EQ(keys(), (std::vector<std::string>{"18000000000001", "18000000000002", "18000000000003", "18000001200001"}));
  ConfigFile entries(nullptr), entry(nullptr);
  entries.readFromString(data("brute_log_entries.list").c_str());
  entry.fillFromPost(entries.getValue("18000000000002"));
  EXPECT_STREQ(std::string(entry.createPostString(0).view()).c_str(),
               "attempts=1&filter=sshd5&ip=192.0.2.1&log=Nov  3 04:05:06 server sshd[1]: Failed password for <b> from "
               "192.0.2.1 port 22 ssh2&time=1800000000&user=<b>");
  EXPECT_EQ(modeOf(panel_.path("admin/brute_log_entries.list")), 0600U);
  EXPECT_FALSE(exists(panel_.path("admin/state/brute_journal")) ||
               exists(panel_.path("admin/state/brute_journal.entries")));
}

TEST_F(BruteMonitor, ReadsOnWhereItStopped) {
  const std::string whole = failure("bob", "192.0.2.1"), other = failure("eve", "192.0.2.1");
  const Rows<const char*, std::function<void()>, long long> steps{
      {"half a line", [&] { write(whole + whole.substr(0, 60)); }, 1},
      {"nothing new", [] {}, 1},
      {"the other half", [&] { write(whole.substr(60)); }, 2},
      {"shrunk", [&] { write(whole, std::ios::trunc); }, 3},
      {"refilled", [&] { write(whole + whole); }, 5},
      {"rotated to the same size", [&] { putAside(), write(whole + whole); }, 7},
      {"copied with a line more, cut, and grown past it",
       [&] {
         write(other);
         writeText(log_ + ".1", contentOf(log_));
         write(other + other + other + other, std::ios::trunc);
       },
       12},
      {"put aside with a line more", [&] { write(whole), putAside(), write(other); }, 14},
      {"NUL and CR", [&] { write(std::string("x\0", 2) + whole + whole.substr(0, whole.size() - 1) + "\r\n"); }, 15},
      {"a very long line", [&] { write(std::string(3'000'000, 'x') + whole + whole); }, 16},
      {"a very long line, unfinished", [&] { write(std::string(3'000'000, 'x')); }, 16},
      {"and its end", [&] { write("\n" + whole); }, 17}};
  long long now = kNow;
  for (const auto& [name, happens, failures] : steps) {
    happens();
    pass(now += 60);
    EXPECT_TRUE(counted(failures)) << name;
    EXPECT_EQ(std::ssize(keys()), failures) << name;
  }
}

TEST_F(BruteMonitor, GoesByNoStateThatMakesNoSense) {
  const std::string line = failure("bob", "192.0.2.1"), size = std::to_string(line.size());
  write(line + line);
  // The first is of another program, which knows no inode.
  for (const auto& [state, failures] : {std::pair("size=" + size + "&position=" + size, 1),
                                        {"size=" + size + "&position=99999", 2},
                                        {"size=" + size + "&position=-5", 2},
                                        {"size=-1&position=0", 2},
                                        {"position=" + size, 2},
                                        {"size=" + size + "&position=" + size + "&inode=1", 2}}) {
    setData("brute.conf", log_ + "=" + state + "\n");
    ::unlink(panel_.path("admin/brute_ip.data").c_str());
    pass();
    EXPECT_TRUE(counted(failures)) << state;
  }
}

TEST_F(BruteMonitor, AppendsSortedByKeyAndGoesOnInSteps) {
  std::string text;
  for (int i = 0; i < 12'345; ++i) text += failure("u" + std::to_string(i % 50), "192.0.2.1");
  write(text);
  pass();
  const auto found = keys();
  ASSERT_EQ(found.size(), 12'345U);
  EXPECT_TRUE(std::is_sorted(found.begin(), found.end()) && found[1000] == "180000000010000");
  const auto writeMany = [&](const char* address) {
    text.clear();
    for (int i = 0; i < 300'000; ++i) text += failure("v" + std::to_string(i), address);
    write(text);
  };
  writeMany("192.0.2.1");
  // So much at the end of a log that was put aside: all of that before any of the new one.
  putAside();
  writeMany("192.0.2.2");
  pass();
  EXPECT_EQ(counts("brute_ip.data"), (Counts{{"192.0.2.1", 312'345}, {"192.0.2.2", 300'000}}));
  EXPECT_EQ(counts("brute_user.data").size(), 300'050U);
  EXPECT_TRUE(hasError("counted in several steps"));
  const auto all = keys();
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 612'345U);
}

TEST_F(BruteMonitor, TellsAtTheLimitOnceAnHour) {
  panel_.conf.ip_brutecount = 2;
  panel_.conf.user_brutecount = 3;
  setData("brute_skip.list", "192.0.2.9=\n");
  hook("notify_pre.sh", "[ \"$type $value\" != 'IP 192.0.2.8' ] || { echo mine; exit 1; }\n");
  hook("notice_ip.sh", "echo \"$value $count $data\"\n");
  hook("notice_user.sh", "echo no; exit 3\n");
  for (const char* address : {"192.0.2.1", "192.0.2.8", "192.0.2.9"})
    write(failure("bob", address) + failure("eve", address));
  pass();
  ASSERT_EQ(sent.size(), 1U) << panel_.logs.errors();
  EXPECT_EQ(sent[0].subject + "\n" + sent[0].message,
            "Brute-Force Attack detected in service log from IP(s) 192.0.2.1 on User(s) bob, eve\n"
            "A brute force attack has been detected in one of your service logs.\n\nIP 192.0.2.1 has 2 failed login "
            "attempts: first_entry=1800000000 & last_entry=1800000000 & sshd5=2\n"
            "User bob has 3 failed login attempts: first_entry=1800000000 & last_entry=1800000000 & sshd5=3\n"
            "User eve has 3 failed login attempts: first_entry=1800000000 & last_entry=1800000000 & sshd5=3\n"
            "\nCheck 'Admin Level -> Brute Force Monitor' for more information\n\n\nView your Brute Force "
            "Monitor:\nhttp://server.example:2222/CMD_BRUTE_FORCE_MONITOR?sort1=-1\n");
  EXPECT_TRUE(hasError("Tally::check_count_for: Pre script output: mine"));
  EXPECT_TRUE(hasError("Brute Force error (User, 'bob'): Script output: no"));
  EXPECT_TRUE(holds(panel_.logs.system(),
                    "Brute Force (IP, '192.0.2.1'): Script output: 192.0.2.1 2 "
                    "first_entry=1800000000&last_entry=1800000000&last_notify=1800000000&sshd5=2"));

  // Nothing new; within the hour; an hour later; no failures since; another failure.
  for (const auto& [after, fails, told] :
       {std::tuple(60, false, 0U), {120, true, 0}, {3600, false, 1}, {7300, false, 0}, {7360, true, 1}}) {
    if (fails) write(failure("bob", "192.0.2.1"));
    EXPECT_EQ(toldBy(kNow + after), told) << after << data("brute_ip.data");
  }
}

TEST_F(BruteMonitor, TellsOfAMissingLogOnceUntilItChanges) {
  panel_.conf.brute_force_exim_log = panel_.path("no-such-log").c_str();
  panel_.conf.brute_force_mail_log = "";
  const auto lines = [&] { return times(panel_.logs.errors(), "\n"); };
  const Rows<const char*, std::function<void()>, long long, long> steps{
      {"one is missing", [] {}, 0, 1},
      {"as before", [] {}, 60, 0},
      {"another too", [&] { putAside(); }, 120, 1},
      {"as before again", [] {}, 180, 0},
      {"back", [&] { write(failure("a", "::1")); }, 240, 0},
      {"gone once more", [&] { ::unlink(log_.c_str()); }, 300, 1},
      {"something else there", [&] { ::mkdir(log_.c_str(), 0700); }, 360, 1},
      {"a day later", [] {}, 86399, 0},
      {"a day later for one", [] {}, 86400, 1}};
  for (const auto& [name, happens, later, told] : steps) {
    const long before = lines();
    happens();
    pass(kNow + later);
    EXPECT_EQ(lines() - before, told) << name << panel_.logs.errors();
  }
}

TEST_F(BruteMonitor, AsksScriptsOnlyWhatIsNewAndInTurn) {
  const std::string seen = panel_.path("seen");
  panel_.conf.ip_brutecount = 2;
  hook("notify_pre.sh", "[ $type = User ] || echo \"$value\" >>" + seen + "; [ \"$value\" != 10.0.0.4 ]\n");
  std::string text;
  for (const char* address : {"10.0.0.1", "10.0.0.1", "10.0.0.2", "10.0.0.2", "10.0.0.4", "10.0.0.4", "10.0.0.3"}) {
    text += failure("bob", address);
  }
  long long now = kNow;
  // Notices first, then what has changed; nothing new but what was objected to; changed.
  for (const auto& [fails, asked] :
       {std::pair<std::string, const char*>(text, "10.0.0.1\n10.0.0.2\n10.0.0.4\n10.0.0.3\n"),
        {"", "10.0.0.4\n"},
        {failure("bob", "10.0.0.1"), "10.0.0.4\n10.0.0.1\n"}}) {
    ::unlink(seen.c_str());
    write(fails);
    pass(now += 60);
    EXPECT_EQ(contentOf(seen), asked) << panel_.logs.errors();
  }

  // Without time nothing is asked, told or stamped; the next pass begins where there was none.
  const FixedClock clock(now + 4000);
  setData("brute_ip.data", "10.0.0.1=last_entry=1&x=5\n10.0.0.2=last_entry=1&x=5\n10.0.0.3=last_entry=1&x=5\n");
  const auto tell = [&](int hookTime) {
    BruteFiles files;
    sent.clear();
    ::unlink(seen.c_str());
    EXPECT_EQ(files.addresses.read() && files.users.read() && tellBruteForce(panel_.conf, files, hookTime), 1);
    return contentOf(seen);
  };
  for (int i = 0; i < 2; ++i) EXPECT_EQ(tell(0), "");
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(times(panel_.logs.errors(), "take too long: 3 names (IP) wait for the next run"), 1);
  EXPECT_EQ(data("state/brute_hook_turns"), "IP=10.0.0.1\n");
  setData("state/brute_hook_turns", "IP=10.0.0.2\n");
  EXPECT_EQ(tell(30), "10.0.0.2\n10.0.0.3\n10.0.0.1\n");
  EXPECT_EQ(sent.size(), 1U);
}

TEST_F(BruteMonitor, TellsAsTheAdministratorWishesAndAgainWhatReachedNobody) {
  panel_.conf.ip_brutecount = 1;
  for (const auto& [hidden, mailOnly, reachesNobody, later, told] : {std::tuple(true, false, false, 0, 0U),
                                                                     {false, true, false, 4000, 1},
                                                                     {false, false, true, 8000, 1},
                                                                     {false, false, false, 8060, 1},
                                                                     {false, false, false, 8120, 0}}) {
    panel_.conf.hide_brute_force_notifications = hidden;
    panel_.conf.brute_force_notifications_email_only = mailOnly;
    loseNotices(reachesNobody);
    write(failure("bob", "192.0.2.1"));
    ASSERT_EQ(toldBy(kNow + later), told) << later;
    EXPECT_TRUE(sent.empty() || sent[0].byEmail == mailOnly);
  }
}

TEST_F(BruteMonitor, DropsWhatIsOldAndIsNotSilencedByTheFuture) {
  const auto record = [](long long last, long long notify) {
    return "first_entry=1&last_entry=" + std::to_string(last) + "&last_notify=" + std::to_string(notify) + "&sshd5=5\n";
  };
  panel_.conf.ip_brutecount = 5;
  setData("brute_ip.data", "10.0.0.1=" + record(kNow - 86401, kNow - 86401) +
                               "10.0.0.2=" + record(kNow - 86400, kNow - 80000) + "10.0.0.3=" + record(kNow + 9000, 0) +
                               "10.0.0.4=" + record(kNow - 9, kNow + 9000) +
                               "10.0.0.5=%66irst_entry=1&last_entry=" + std::to_string(kNow) + "&x=%35\n");
  write(failure("bob", "10.0.0.3"));
  pass();
  EXPECT_EQ(counts("brute_ip.data"), (Counts{{"10.0.0.2", 5}, {"10.0.0.3", 6}, {"10.0.0.4", 5}, {"10.0.0.5", 5}}));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].subject, "Brute-Force Attack detected in service log from IP(s) 10.0.0.3, 10.0.0.4, 10.0.0.5");
  const std::string before = data("brute_ip.data");
  EXPECT_TRUE(holds(before, "10.0.0.4=first_entry=1&last_entry=1799999991&last_notify=1800000000"));
  for (const char* stamp : {"entry", "notify"})
    EXPECT_TRUE(hasError(joined("last_", stamp, " of 1 records is not in the")));
  EXPECT_EQ(toldBy(kNow), 0U);
  EXPECT_EQ(data("brute_ip.data"), before);
}

TEST_F(BruteMonitor, MarksNoTwoScansAlike) {
  // Two stamps a second apart, on both sides of what still passes for now.
  for (const long long ahead : {0LL, 118LL, 119LL, 120LL, 121LL}) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
      text += joined("10.0.0.", std::to_string(i), "=first_entry=1&last_entry=", std::to_string(kNow + ahead + i),
                     "&sshd5=5\n");
      write(failure("bob", joined("10.0.0.", std::to_string(i))));
    }
    setData("brute_ip.data", text);
    pass();
    EXPECT_EQ(counts("brute_ip.data"), (Counts{{"10.0.0.0", 6}, {"10.0.0.1", 6}, {"10.0.0.2", 6}, {"10.0.0.3", 6}}))
        << ahead;
  }
}

TEST_F(BruteMonitor, DoesNothingWhenItMayNot) {
  write(failure("bob", "192.0.2.1"));
  panel_.conf.brute_force_log_scanner = 0;
  pass();
  panel_.conf.brute_force_log_scanner = 1;
  setData("check_brute_force_logs.lock", "");
  // The clock that locks go by is the file system's.
  check_brute_force_logs(&panel_.conf);
  ::unlink(panel_.path("admin/check_brute_force_logs.lock").c_str());
  const std::string filters = panel_.path("templates/brute_filter.list");
  panel_.makeFolder("templates/brute_filter.list");
  pass();
  EXPECT_TRUE(hasError("Error reading " + filters + ": "));
  EXPECT_EQ(data("brute.conf") + data("brute_ip.data") + data("brute_log_entries.list"), "");
  ::rmdir(filters.c_str());
  panel_.conf.user_brutecount = 0;
  pass();
  EXPECT_TRUE(counted(1));
  EXPECT_EQ(data("brute_user.data"), "");
}

TEST_F(BruteMonitor, TakesNothingThatOthersPlanted) {
  panel_.conf.ip_brutecount = 1;
  panel_.conf.clear_brute_log_entry_time = 1;
  write(failure("bob", "192.0.2.1"));
  const std::string size = std::to_string(contentOf(log_).size());
  panel_.makeFolder("admin/custom");
  setData("custom/brute.conf", log_ + "=size=" + size + "&position=" + size + "\n");
  setData("brute_skip.list", "192.0.2.1=\n");
  setData("brute_log_entries.list", "10001=attempts=1&ip=192.0.2.7&time=1\n");
  fs::create_symlink("/etc/passwd", panel_.path("admin/brute_ip.data"));
  ASSERT_EQ(::mkfifo(panel_.path("admin/brute_user.data").c_str(), 0666), 0);
  for (const char* planted :
       {"custom/brute.conf", "brute_skip.list", "brute_log_entries.list", "brute_ip.data", "brute_user.data"}) {
    give(panel_.path(joined("admin/", planted)), 65534);
  }
  EXPECT_EQ(clear_brute_log_entries(&panel_.conf), 1);
  EXPECT_EQ(keys().size(), 1U);
  pass();
  // A FIFO that is still there cannot be read.
  ASSERT_TRUE(counted(1));
  EXPECT_EQ(counts("brute_user.data"), (Counts{{"bob", 1}}));
  EXPECT_EQ(keys(), std::vector<std::string>{"18000000000001"});
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_TRUE(data("brute.conf").starts_with(log_ + "="));
  EXPECT_TRUE(holds(panel_.logs.security(), "custom/brute.conf belongs to uid 65534"));

  // A file of root's, put into the planted folder as another name of it.
  setData("custom/brute.conf", "here=1\n");
  give(panel_.path("admin/custom/brute.conf"), 0);
  give(panel_.path("admin/custom"), 65534);
  write(failure("bob", "192.0.2.1"));
  pass(kNow + 60);
  EXPECT_TRUE(counted(2));
  EXPECT_EQ(data("custom/brute.conf"), "here=1\n");
}

TEST_F(BruteMonitor, FloodsNoLog) {
  std::string text;
  for (int i = 0; i < 50; ++i) text += failure("x from 192.0.2.2", "192.0.2.1") + failure("x", "nowhere");
  write(text);
  pass();
  EXPECT_TRUE(holds(panel_.logs.security(), "with more than one address, counting 192.0.2.2: "));
  EXPECT_TRUE(holds(panel_.logs.security(), "95 more failed log-ins"));
  EXPECT_TRUE(hasError("Tally::scan_log: Unable to determine IP value from string: nowhere"));
  EXPECT_EQ(counts("brute_ip.data"), (Counts{{"192.0.2.2", 50}}));
}
