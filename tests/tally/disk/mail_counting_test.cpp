#include "tally/disk/mail_counting.h"

#include "support/panel_folder.h"
#include "tally/disk/disk_breakdown.h"

TEST(DiskBreakdown, HoldsAnyName) {
  PanelFolder panel;
  panel.makeFolder("users/bob");
  panel.conf.userdata = panel.path("users").c_str();
  DiskBreakdown items("bob");
  items.du_detail(123, "/home/bob/a&b=c\nd", true);
  items.du_detail(5, "databases", false);
  ASSERT_TRUE(items.write()) << panel.logs.errors();
  const std::string written = contentOf(panel.path("users/bob/du_breakdown.list"));
  EXPECT_EQ(times(written, "\n"), 2);
  ConfigFile item(nullptr);
  item.fillFromPost(written.substr(0, written.find('\n')).c_str());
  EXPECT_EQ(item.createPostString(0).view(), "counted=yes&descriptor=/home/bob/a&b=c\nd&size=123");
}

TEST(MailCounting, ModesAndPartitions) {
  PanelFolder panel;
  constexpr const char* kOne = "/dev/sda1 / ext4 rw 0 0\nproc /proc proc rw 0 0\ntmpfs /run tmpfs rw 0 0\n";
  const std::string bound = std::string(kOne) + "/dev/sda1 /var ext4 rw 0 0\n";
  const std::string homes = std::string(kOne) + "server:/homes /home nfs4 rw 0 0\n";
  const std::string var = std::string(kOne) + "/dev/sdb1 /var ext4 rw 0 0\n";
  for (const auto& [name, mode, partition, table, want] :
       Rows<const char*, int, const char*, std::string, int>{{"on top", 1, "/", kOne, 1},
                                                             {"not on top", 2, "/home", homes, 0},
                                                             {"one partition", 0, "/home", kOne, 0},
                                                             {"bound twice", 0, "/home", bound, 0},
                                                             {"homes apart", 0, "/home", homes, 1},
                                                             {"no var", 0, "/", homes, 0},
                                                             {"var apart", 0, "/", var, 1},
                                                             {"no such mode", 3, "/home", var, 1},
                                                             {"no partition named", 0, nullptr, var, 1}})
    EXPECT_EQ(countEmailFor(mode, partition, partitionsIn(table)), want) << name;
  EXPECT_TRUE(holds(panel.logs.errors(), "count is 3. Should either be one of 0,1,2\n"));
}

TEST(MailCounting, RotationScripts) {
  PanelFolder panel;
  for (const char* script : {"", "custom/"}) {
    panel.script(joined(script, "rotate_email_usage.sh"), joined("echo $(id -u) ", script, " >>", panel.path("ran")));
    rotate_email_usage(&panel.conf);
  }
  EXPECT_EQ(contentOf(panel.path("ran")), "0\n0 custom/\n") << panel.logs.errors();
  panel.script("custom/rotate_email_usage.sh", "echo broken; exit 3");
  rotate_email_usage(&panel.conf);
  EXPECT_TRUE(holds(panel.logs.errors(), "/rotate_email_usage.sh : broken\n"));
}

TEST(MailCounting, HalfATableOfMountsIsNone) {
  const PanelFolder panel;
  EXPECT_EQ(failing("mounts.read:EIO:1", [&] { return countEmail(&panel.conf); }), 0);
  EXPECT_TRUE(holds(panel.logs.errors(), "Unable to read /proc/self/mounts: Input/output error\n"));
}
