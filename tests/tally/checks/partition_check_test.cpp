#include "tally/checks/partition_check.h"

#include "core/panel/partitions.h"
#include "support/notice_recorder.h"
#include "support/panel_folder.h"

namespace {
constexpr long long kNow = 1'800'000'000;

class PartitionCheck : public ::testing::Test {
 protected:
  PartitionCheck() {
    panel_.conf.check_partitions = 1;
    panel_.conf.partition_usage_threshold = 0;
    writeText(panel_.path("templates/partition_check.list"), "/\n/no/such/mount\n");
    writeText(panel_.path("templates/partition_check_message.txt"), "|LANG| |THRESHOLD|: |PARTITIONS|");
  }
  void check(const std::string& pairs) {
    panel_.conf.language = "tlh";
    panel_.put("admin/admin.conf", pairs);
    const FixedClock clock(kNow);
    check_partition_usage(&panel_.conf);
  }
  PanelFolder panel_;
};

}  // namespace

TEST(Partitions, TableIsRead) {
  for (const auto& [name, table, want] : Rows<const char*, const char*, const char*>{
           {"plain, and signs in a mount point",
            "Use% Mounted on\n100% /boot\n  0% /dev/shm\n 9% /mnt/a b  99% /home\n",
            "/boot=Use=100;/dev/shm=Use=0;/mnt/a b  99% /home=Use=9;"},
           {"without data, or hidden", " 17% /\n   - /proc\n   - /\n", "/=Use=17;"},
           {"what lies on top counts", " 17% /mnt\n 18% /mnt\n", "/mnt=Use=18;"},
           {"odd lines", "x\n%\n12\n12%\n12%/\n-1% /a\n99999999999% /b\n 5% c\n", ""},
           {"unfinished line", " 17% /\n 18% /ho", "/=Use=17;"}}) {
    ConfigFile usage(nullptr);
    parsePartitionUsage(table, usage);
    EXPECT_EQ(pairsOf(usage), want) << name;
  }
}

TEST_F(PartitionCheck, OnceADayOrEveryTime) {
  for (const auto& [name, mode, threshold, age, sent] :
       Rows<const char*, int, int, long long, std::size_t>{{"off", 0, 0, kNow, 0},
                                                           {"first", 1, 0, kNow, 1},
                                                           {"none full", 1, 101, kNow, 0},
                                                           {"a day ago", 1, 0, 86400, 0},
                                                           {"a second more", 1, 0, 86401, 1},
                                                           {"with the tally", 2, 0, 1, 1},
                                                           {"from the future", 1, 0, -1, 1}}) {
    const std::size_t before = sentNotices().size();
    panel_.conf.check_partitions = mode;
    panel_.conf.partition_usage_threshold = threshold;
    const std::string stamp = "quota_thresh_last_check=" + std::to_string(kNow - age) + "\n";
    check(stamp);
    EXPECT_EQ(sentNotices().size() - before, sent) << name << panel_.logs.errors();
    const std::string after = contentOf(panel_.path("admin/admin.conf"));
    EXPECT_EQ(after, sent == 0 ? stamp : "quota_thresh_last_check=1800000000\n") << name;
  }
  const std::string lastMessage = sentNotices().back().message;
  EXPECT_TRUE(lastMessage.starts_with("tlh 0: ") && lastMessage.ends_with("% - /\n")) << lastMessage;
  EXPECT_FALSE(holds(lastMessage, "/no/such"));
}
