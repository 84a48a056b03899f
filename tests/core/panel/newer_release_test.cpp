#include "core/panel/newer_release.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "core/sys/privileges.h"
#include "support/panel_folder.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

TEST(NewerRelease, IsNotedFromTheHookElseFromTheFile) {
  PanelFolder panel;
  const auto file = [&](const std::string& text, unsigned owner) {
    writeText(panel.path("admin/newest_release"), text);
    EXPECT_EQ(::chown(panel.path("admin/newest_release").c_str(), owner, 0), 0);
  };
  const auto hook = [&](const std::string& body) {
    ::unlink(panel.path("scripts/custom/newest_release.sh").c_str());
    writeText(panel.path("scripts/custom/newest_release.sh"), "#!/bin/sh\n" + body + "\n");
    ::chmod(panel.path("scripts/custom/newest_release.sh").c_str(), 0755);
  };
  ::chmod(panel.path("").c_str(), 0755);
  ::chmod(panel.path("scripts").c_str(), 0755);
  ::chmod(panel.path("scripts/custom").c_str(), 0755);
  const auto note = [&] { return contentOf(panel.path("admin/state/newer_release")); };

  EXPECT_EQ(noteNewerRelease(), 1);
  EXPECT_EQ(note(), "");
  file("1.99.0\n", 65534);
  EXPECT_EQ(noteNewerRelease(), 1);
  EXPECT_EQ(note(), "");
  file(" 1.50.2\n", getUID(kPanelUser));
  EXPECT_EQ(noteNewerRelease(), 1);
  EXPECT_TRUE(holds(note(), "newer=yes\nrunning=1.50.1\n"));
  EXPECT_TRUE(holds(note(), "version=1.50.2\n"));
  hook("echo 1.9");
  EXPECT_EQ(noteNewerRelease(), 1);
  EXPECT_TRUE(holds(note(), "newer=no\n"));
  EXPECT_TRUE(holds(note(), "version=1.9.0\n"));
  for (const char* body : {"echo 1.50.x", "echo 1", "echo 1.-5.0", "exit 3"}) {
    hook(body);
    EXPECT_EQ(noteNewerRelease(), 0) << body;
  }
  panel.conf.get_current_version_timeout = 1;
  hook("echo 9.9.9; exec sleep 60");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(noteNewerRelease(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_TRUE(holds(note(), "version=1.9.0\n"));
}
