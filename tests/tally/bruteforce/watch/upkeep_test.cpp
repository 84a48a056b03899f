// The brute-force monitor's web logs, the trimming of its entry log, and the unblocking.
#include "tally/bruteforce/lines/web_log_list.h"
#include "tally/bruteforce/records/entry_log.h"
#include "tally/bruteforce/watch/brute_monitor.h"
#include "tally/bruteforce/watch/unblock.h"

namespace {
constexpr long long kDay = 86400;

class BruteUpkeep : public BruteMonitor {
 protected:
  const FixedClock clock_{kNow};
};

std::string entry(long long time, const std::string& address, const std::string& log = "a line") {
  ConfigFile record(nullptr);
  record.setParam("time", time);
  record.setParam("ip", address.c_str());
  record.setParam("log", log.c_str());
  return joined(std::to_string(time), "0001=", record.createPostString(1), "\n");
}
}  // namespace

TEST_F(BruteUpkeep, WebLogs) {
  panel_.makeFolder("www/folder.log");
  const std::string folder = panel_.path("www/");
  for (const char* name : {"a.example.log", "a.example.error.log", "b.log.1", "known.log", "odd=.log", ".log"}) {
    writeText(folder + name, "");
  }
  panel_.conf.apachelogdir = folder.c_str();
  panel_.conf.brute_force_apache_log_list_update_interval = 10;
  const std::string found = ".log,a.example.log,known.log,old.log,", kept = "known.log,old.log,";
  // Never before; not wanted; just now; due; by another clock.
  for (const auto& [mode, last, want] :
       Rows<int, long long, int>{{2, 0, 1}, {1, 0, 0}, {3, kNow - 600, 0}, {3, kNow - 601, 1}, {2, kNow + 1, 1}}) {
    ConfigFile state(nullptr);
    state.setParam((folder + "known.log").c_str(), "size=7");
    state.setParam((folder + "old.log").c_str(), "size=8");
    state.setParam((panel_.path("wwwx/") + "other.log").c_str(), "");
    if (last != 0) state.setParam("last_refresh", last);
    panel_.conf.brute_force_scan_apache_logs = mode;
    ListFile logs(nullptr);
    EXPECT_EQ(get_apache_logs_from_brute_conf(&panel_.conf, state, logs), want) << mode << last;
    std::string list;
    for (int i = 0; i < logs.size(); ++i) list += std::string(logs.getElementAt(i)).substr(folder.size()) + ",";
    EXPECT_EQ(list, want == 1 ? found : kept) << mode << last;
    EXPECT_STREQ(state.getValue((folder + "known.log").c_str()), "size=7");
    EXPECT_EQ(state.isValue("last_refresh", "1800000000"), want) << mode << last;
  }
}

TEST_F(BruteUpkeep, TrimsTheEntryLog) {
  const std::string path = panel_.path("admin/brute_log_entries.list");
  const std::string odd = std::string("no entry\r\n\n18=time=x&ip=192.0.2.7\n1=ip=192.0.2.8\nnul=\0=time=1\n", 55);
  const std::string young = entry(kNow - 3 * kDay + 1, "192.0.2.1"), tail = "1=time=1&ip=192.0.2.9";
  const std::string old = entry(kNow - 3 * kDay, "2001:db8::1") +
                          entry(kNow - 4 * kDay, "192.0.2.1", "x\n&ip=192.0.2.66") + entry(1, "$(id)");
  panel_.conf.clear_brute_log_entry_time = 3;
  panel_.script(
      "custom/brute_force_clear_log_ip.sh",
      "echo \"$value\" >>" + panel_.path("cleared") + "; case $value in 1*) echo done;; *) echo no; exit 1; esac\n");
  const auto write = [&](const std::string& text) { setData("brute_log_entries.list", text); };
  const auto clear = [&] { return clear_brute_log_entries(&panel_.conf); };
  EXPECT_EQ(clear(), 1);
  const std::string whole = old + odd + young + old + odd + tail;
  write(whole);
  for (const char* plan : {"safe_write.*:ENOSPC", "safe_write.fsync:EIO", "safe_write.rename:EDQUOT"}) {
    EXPECT_EQ(failing(plan, [&] { return clear(); }), 0) << plan;
    EXPECT_EQ(contentOf(path), whole) << plan;
    EXPECT_FALSE(exists(path + ".temp")) << plan;
  }
  EXPECT_TRUE(hasError("Unable to move " + path + ".temp to " + path + " : Disk quota exceeded"));
  EXPECT_FALSE(exists(panel_.path("cleared")));

  EXPECT_EQ(clear(), 1);
  EXPECT_EQ(contentOf(path), odd + young + odd + tail);
  EXPECT_EQ(modeOf(path), 0600U);
  EXPECT_EQ(contentOf(panel_.path("cleared")), "192.0.2.1\n2001:db8::1\n");
  EXPECT_TRUE(hasError("Clear IP '2001:db8::1' error: Script output: no"));
  EXPECT_TRUE(holds(panel_.logs.system(), "Clear IP '192.0.2.1': Script output: done"));
  EXPECT_TRUE(holds(panel_.logs.system(), "Removed 6 log entires:"));

  // No time for scripts.
  write(old);
  EXPECT_EQ(clear_brute_log_entries(&panel_.conf, 0), 1);
  EXPECT_EQ(contentOf(panel_.path("cleared")), "192.0.2.1\n2001:db8::1\n");
  EXPECT_TRUE(hasError("from 192.0.2.1 on it is not told of 2 addresses"));

  panel_.conf.clear_brute_log_entry_time = 0;
  write(old);
  EXPECT_EQ(clear(), 1);
  EXPECT_EQ(contentOf(path), old);
  panel_.conf.clear_brute_log_entry_time = 1;
  ::chmod(panel_.path("admin").c_str(), 0755);
  EXPECT_EQ(clear(), 0);
  EXPECT_TRUE(hasError("Tally::clear_brute_log_entries: Unable to lock " + path));
  EXPECT_EQ(contentOf(path), old);
}

TEST_F(BruteUpkeep, Unblocks) {
  const std::string seen = panel_.path("seen");
  const auto at = [](const char* address, long long time) {
    return joined("&", address, "=dateblocked%3D", std::to_string(time));
  };
  std::string many, first;
  for (int i = 0; i < 1200; ++i) {
    const std::string address = joined("10.0.", std::to_string(i / 200), ".", std::to_string(i % 200));
    many += at(address.c_str(), 2000 - i);
    if (i >= 200) first = joined(address, first.empty() ? "" : ",", first);
  }
  panel_.conf.unblock_brute_ip_time = 1;
  panel_.script("unblock_ip.sh", "echo \"$ip\" >>" + seen + "\n");
  for (const auto& [name, show, unblocked, error] : Rows<const char*, std::string, std::string, const char*>{
           {"due, not due, odd",
            "havedata=1" + at("192.0.2.1", kNow - 60) + at("192.0.2.2", kNow - 59) + at("2001%3Adb8%3A%3A1", 5) +
                at("192.0.2.0%2F24", 4) + at("192.0.2.0%2F33", 7) + at("$(id)", 1) + at("192.0.2.3", 0) +
                "&192.0.2.4=&192.0.2.5&192.0.2.6=dateblocked%3Dx",
            "192.0.2.0/24,2001:db8::1,192.0.2.1", ""},
           {"more than one run may lift", "havedata=1" + many, first, ""},
           {"no data", "havedata=0" + at("192.0.2.1", 1), "", "show_blocked_ips.sh did not return havedata=1"},
           {"nothing", "", "", "show_blocked_ips.sh returns no result"}}) {
    const LogCapture logs;
    ::unlink(seen.c_str());
    panel_.script("show_blocked_ips.sh", "cat <<'END'\n" + show + "\nEND\n");
    EXPECT_EQ(unblock_bfm_ips(&panel_.conf), *error == '\0' ? 1 : 0) << name;
    EXPECT_EQ(contentOf(seen), unblocked.empty() ? "" : unblocked + "\n") << name;
    EXPECT_TRUE(holds(logs.errors(), error)) << name;
  }
  const LogCapture logs;
  panel_.script("show_blocked_ips.sh", "echo 'havedata=1" + at("192.0.2.1", 1) + "'\n");
  panel_.script("custom/unblock_ip.sh", "echo no; exit 1\n");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(unblock_bfm_ips(&panel_.conf), 0);
  EXPECT_EQ(times(logs.errors(), "Tally::unblock_bfm_ips error: no"), 1);
  panel_.conf.unblock_brute_ip_time = 0;
  EXPECT_EQ(unblock_bfm_ips(&panel_.conf), 1);
}
