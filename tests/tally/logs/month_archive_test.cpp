#include "tally/logs/month_archive.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/sys/fail_point.h"
#include "core/sys/safe_point.h"
#include "support/panel_folder.h"
#include "tally/logs/tar_piece.h"

using namespace zvtaskq;
using namespace zvtaskq::test;
namespace fs = std::filesystem;

namespace {

constexpr const char* kUser = "mail";
constexpr unsigned kUserId = 8;
constexpr const char* kArchive = "Nov-2026.tar.gz";

int growing = -1;

class MonthArchive : public ::testing::Test {
 protected:
  MonthArchive() {
    panel_.makeFolder("logs");
    EXPECT_EQ(::chown(panel_.path("logs").c_str(), kUserId, kUserId), 0);
    folder_ = {Descriptor(sys::open(panel_.path("logs").c_str(), O_RDONLY | O_DIRECTORY)), panel_.path("logs")};
  }
  ~MonthArchive() override {
    setFailPlan(nullptr);
    setSafePointAction(nullptr);
  }

  int add(const std::string& name, const std::string& content) {
    writeText(panel_.path("log"), content);
    const Descriptor log(sys::open(panel_.path("log").c_str(), O_RDONLY));
    return addToArchive(kUser, folder_, kArchive, name, log);
  }
  /// What tar finds in it: "name content " for each.
  std::string members() const {
    const std::string out = panel_.path("out");
    const std::string command =
        "gzip -dc " + archive() + " 2>&1 | tar -xf - --to-command='echo $TAR_FILENAME $(cat)' > " + out;
    EXPECT_EQ(std::system(command.c_str()), 0);
    return contentOf(out);
  }
  std::string archive() const { return panel_.path(std::string("logs/") + kArchive); }
  struct stat look() const {
    struct stat what {};
    EXPECT_EQ(::stat(archive().c_str(), &what), 0);
    return what;
  }
  void give(const std::string& content) const {
    writeText(archive(), content);
    EXPECT_EQ(::chown(archive().c_str(), kUserId, kUserId), 0);
  }

  PanelFolder panel_;
  OpenedFolder folder_;
};

}  // namespace

TEST_F(MonthArchive, ALogIsWrittenBehindWhatIsThere) {
  ASSERT_TRUE(add("a.log", "one")) << panel_.logs.errors();
  const struct stat first = look();
  const std::string before = contentOf(archive());
  ASSERT_TRUE(add("b.log", std::string(600, 'x')));
  EXPECT_EQ(look().st_ino, first.st_ino);
  EXPECT_EQ(contentOf(archive()).substr(kGzipMarkSize, before.size() - kGzipMarkSize), before.substr(kGzipMarkSize));
  EXPECT_TRUE(first.st_uid == kUserId && modeOf(archive()) == 0600U);
  // What a crash left is cut off; a failure leaves what was there.
  const std::string whole = contentOf(archive());
  for (const char* plan : {"write:short", "write:ENOSPC:1", "write:short:2", "fsync:EIO", "fsync:EIO:1"}) {
    give(whole + "half a log");
    setFailPlan(("month_archive." + std::string(plan)).c_str());
    EXPECT_FALSE(add("c.log", "three")) << plan;
    setFailPlan(nullptr);
    EXPECT_TRUE(contentOf(archive()).substr(kGzipMarkSize) == whole.substr(kGzipMarkSize)) << plan;
  }
  give(whole + std::string(100'000, '#'));
  ASSERT_TRUE(add("c.log", "three"));
  EXPECT_EQ(contentOf(archive()).find("####"), std::string::npos);
  EXPECT_EQ(members(), "a.log one\nb.log " + std::string(600, 'x') + "\nc.log three\n");
}

TEST_F(MonthArchive, SomebodyElsesIsCopiedOnceAndNoFurtherThanItWentThen) {
  const std::string theirs = gzipStored(std::string(60'000, '\0'));
  give(theirs);
  const Descriptor file(sys::open(archive().c_str(), O_WRONLY | O_APPEND));
  growing = file.get();
  setSafePointAction([] { static_cast<void>(!::write(growing, "more", 4)); });
  ASSERT_TRUE(add("a.log", "one"));
  setSafePointAction(nullptr);
  EXPECT_EQ(contentOf(archive()).substr(kGzipMarkSize, theirs.size()), theirs);
  EXPECT_EQ(contentOf(archive()).find("more"), std::string::npos);
  // A second name is a copy that is to stay what it is.
  fs::create_hard_link(archive(), panel_.path("kept"));
  const std::string kept = contentOf(archive());
  ASSERT_TRUE(add("b.log", "two"));
  EXPECT_EQ(contentOf(panel_.path("kept")), kept);
  EXPECT_EQ(look().st_nlink, 1U);
  // A mark that says more than there is, or half a number, is nobody's.
  for (const std::string& mark : {gzipMark(1 << 20), gzipMark(44), gzipMark(-1), gzipMark(50).replace(20, 1, "x")}) {
    give(mark + theirs);
    ASSERT_TRUE(add("c.log", "three"));
    EXPECT_EQ(contentOf(archive()).substr(kGzipMarkSize, mark.size() + theirs.size()), mark + theirs);
  }
}

TEST_F(MonthArchive, IsAsOldAsItsNewestLog) {
  for (const auto& [log, want] : {std::pair(2000L, 2000L), std::pair(1000L, 2000L), std::pair(3000L, 3000L)}) {
    writeText(panel_.path("log"), "x");
    const timespec times[] = {{log, 0}, {log, 7}};
    ASSERT_EQ(::utimensat(AT_FDCWD, panel_.path("log").c_str(), times, 0), 0);
    const Descriptor file(sys::open(panel_.path("log").c_str(), O_RDONLY));
    ASSERT_TRUE(addToArchive(kUser, folder_, kArchive, "a.log", file));
    EXPECT_TRUE(look().st_mtim.tv_sec == want && look().st_mtim.tv_nsec == 7) << log;
  }
}
