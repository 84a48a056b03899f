#include <sys/mount.h>

#include "support/panel_folder.h"
#include "tally/disk/quota_report.h"
#include "tally/disk/quota_tables.h"

namespace {
constexpr const char* kReport =
    "*** Report for user quotas on device /dev/sda3\nBlock grace time: 7days; Inode grace time: 7days\n"
    "User            used    soft    hard  grace    used  soft  hard  grace\n-------------------------\n"
    "daemon    --       4       0       0      0       1     0     0      0\n"
    "bob       +-  102500  100000  110000 1795999999     120   500   600      0\n"
    "#1005     --       8       0       0      0       1     0     0      0\n\n";

class Quotas : public ::testing::Test {
 protected:
  Quotas() {
    panel_.makeFolder("tmp");
    ::chmod(panel_.path("tmp").c_str(), 01777);
    panel_.makeFolder("part");
    panel_.conf.tmpdir = panel_.path("tmp").c_str();
    panel_.conf.repquota = panel_.path("repquota").c_str();
    panel_.conf.xfs_quota = panel_.path("xfs_quota").c_str();
    panel_.conf.quota_partition = panel_.path("part").c_str();
    writeScript(panel_.path("repquota"),
                "echo \"$@\" >" + panel_.path("called") + "; cat " + panel_.path("report") + "; exit 1");
  }
  void read() { static_cast<void>(getAllQuotas(&panel_.conf, quotas_, inodes_)); }
  double blocks(const char* name) const { return getDiskUsage(&quotas_, name) / 1024; }
  PanelFolder panel_;
  ConfigFile quotas_{nullptr};
  ConfigFile inodes_{nullptr};
};
}  // namespace

TEST(QuotaReport, Rows) {
  for (const auto& [line, xfs, user, blocks, inodes, over] :
       Rows<const char*, bool, const char*, unsigned long long, unsigned long long, bool>{
           {"bob       --  102400       0       0              7     0     0       ", false, "bob", 102400, 7, false},
           {"bob +- 11 5 10 6days 7 0 0", false, "bob", 11, 7, true},
           {"bob -+ 4 5 10 7 5 10 none", false, "bob", 4, 7, true},
           {"averylongusername ++ 11 5 10 6days 7 5 10 00:30", false, "averylongusername", 11, 7, true},
           {"bob -- 4 0 0 0 7 0 0 0", false, "bob", 4, 7, false},
           {"User used soft hard grace used soft hard grace", false, "", 0, 0, false},
           {"bob -- 4k 0 0 0 7 0 0 0", false, "", 0, 0, false},
           {"bob -- 4 0 0 0 7", false, "", 0, 0, false},
           {"", false, "", 0, 0, false},
           {"bob  102500  100000  110000  00 [6 days]  120  0  0  00 [--------]", true, "bob", 102500, 120, true},
           {"bob  5  0  0  00 [--------]  120  100  150  00 [-none-]", true, "bob", 5, 120, true},
           {"bob  5  10  0  00 [--------]  120  0  0  00 [--------]", true, "bob", 5, 120, false},
           {"bob  10  0  10  00 [--------]  1  0  0  00 [--------]", true, "bob", 10, 1, true},
           {"User ID Used Soft Hard Warn/Grace Used Soft Hard Warn/ Grace", true, "", 0, 0, false},
           {"bob 5 0 0 00 [-----", true, "", 0, 0, false}}) {
    QuotaRow row;
    const bool found = xfs ? readXfsQuotaRow(line, row) : readQuotaRow(line, row);
    ASSERT_EQ(found, *user != '\0') << line;
    if (!found) continue;
    EXPECT_EQ(row.user, user) << line;
    EXPECT_TRUE(row.used.blocks == blocks && row.used.inodes == inodes && row.isOver == over) << line;
  }
}

TEST_F(Quotas, ReportOfSeveralPartitions) {
  const std::string second = "*** Report for user quotas on device /dev/sdb1\nbob -- 7 0 0 0 3 0 0 0\n";
  writeText(panel_.path("report"), std::string(kReport) + second);
  panel_.conf.ext_quota_partitions = "/mnt/a b:/mnt/c";
  read();
  EXPECT_EQ(contentOf(panel_.path("called")), "-u -p " + panel_.path("part") + " /mnt/a b /mnt/c\n");
  EXPECT_EQ(getDiskUsage(&quotas_, "bob"), (102500.0 + 7) * 1024);
  EXPECT_EQ(getInodes(&inodes_, "bob"), 123);
  EXPECT_EQ(blocks("daemon"), 4);
  EXPECT_EQ(getDiskUsage(&quotas_, "nobody") + getDiskUsage(nullptr, "bob"), 0);
  EXPECT_TRUE(holds(panel_.logs.errors(), "Over quota detected for User bob\n"));
  EXPECT_FALSE(holds(panel_.logs.errors(), "User daemon"));
  EXPECT_TRUE(fs::is_empty(panel_.path("tmp")));
}

TEST_F(Quotas, XfsAsksForEachPartition) {
  panel_.conf.use_xfs_quota = true;
  panel_.conf.ext_quota_partitions = "/mnt/c";
  writeScript(
      panel_.path("xfs_quota"),
      "[ \"$*\" = \"-x -c report -u -b -i -N $4\" ] && echo 'bob  5  0  0  00 [--------]  2  0  0  00 [--------]'\n");
  read();
  EXPECT_EQ(blocks("bob"), 10);
  EXPECT_EQ(getInodes(&inodes_, "bob"), 4);
}

TEST_F(Quotas, TemporaryFolder) {
  writeText(panel_.path("report"), kReport);
  const std::string complaint = "*** Cannot find " + panel_.path("tmp") + " to use for temp repquota dump (usually " +
                                "/home/tmp).  You must create it and chmod to 1777";
  // Without a good one the report is read all the same.
  long told = 0;
  for (const char* change : {"chmod 755", "rmdir", "touch"}) {
    ASSERT_EQ(std::system(joined(change, " ", panel_.path("tmp")).c_str()), 0);
    read();
    EXPECT_EQ(times(panel_.logs.errors(), complaint), ++told) << change;
    EXPECT_EQ(blocks("daemon"), 4) << change;
    EXPECT_TRUE(!exists(panel_.path("admin/state")) || fs::is_empty(panel_.path("admin/state"))) << change;
  }
}

TEST_F(Quotas, OfOneAccountItsHomeAloneIsCounted) {
  panel_.conf.disable_quota = true;
  panel_.makeFolder("part/ann");
  give(panel_.path("part/ann"), 8);
  ASSERT_EQ(std::system("mkdir -p /var/mail/sub && chown mail /var/mail/sub"), 0);
  ASSERT_TRUE(getAllQuotas(&panel_.conf, quotas_, inodes_, {"mail", "nosuchaccount"})) << panel_.logs.errors();
  EXPECT_EQ(getInodes(&inodes_, "mail"), 1);
  EXPECT_EQ(inodes_.getValue("root"), nullptr);
  EXPECT_EQ(std::system("rm -r /var/mail/sub"), 0);
}

TEST_F(Quotas, MountsAreCountedOnceAndOnThisFileSystemAlone) {
  panel_.conf.disable_quota = true;
  for (const char* name : {"part/ann/data", "part/bob/again", "part/bob/other"}) {
    panel_.makeFolder(name);
    give(panel_.path(name), 1);
  }
  writeText(panel_.path("part/ann/data/file"), "x");
  give(panel_.path("part/ann/data/file"), 1);
  const std::string again = panel_.path("part/bob/again"), other = panel_.path("part/bob/other");
  ASSERT_EQ(::mount(panel_.path("part/ann").c_str(), again.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(::mount("tmpfs", other.c_str(), "tmpfs", 0, "uid=1"), 0);
  read();
  ::umount(again.c_str());
  ::umount(other.c_str());
  EXPECT_EQ(getInodes(&inodes_, "daemon"), 2);
}

TEST_F(Quotas, WithoutQuotasFilesAreCounted) {
  panel_.makeFolder("part/home");
  writeText(panel_.path("part/home/one"), std::string(10'000, 'x'));
  writeText(panel_.path("away"), std::string(100'000, 'x'));
  fs::create_hard_link(panel_.path("part/home/one"), panel_.path("part/home/two"));
  fs::create_symlink(panel_.path("away"), panel_.path("part/home/link"));
  for (const char* name : {"part/home", "part/home/one", "part/home/link"}) give(panel_.path(name), 1);
  const double size = static_cast<double>(statOf(panel_.path("part/home/one")).st_blocks) / 2;
  for (const auto& [name, tool, disabled] :
       Rows<const char*, const char*, bool>{{"switched off", "cat /dev/null", true},
                                            {"says nothing", "exit 0", false},
                                            {"fails", "echo 'bob -- 1 0 0 1 0 0'; exit 2", false}}) {
    writeScript(panel_.path("repquota"), tool);
    panel_.conf.disable_quota = disabled;
    read();
    EXPECT_EQ(getInodes(&inodes_, "daemon"), 3) << name;
    EXPECT_TRUE(blocks("daemon") >= size && blocks("daemon") < size + 20) << name << blocks("daemon");
    EXPECT_EQ(quotas_.getValue("bob"), nullptr) << name;
  }
}
