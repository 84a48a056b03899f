#include "tally/logs/month_archive.h"

#include "core/sys/safe_point.h"
#include "support/panel_folder.h"
#include "tally/logs/tar_piece.h"

namespace {
constexpr const char* kUser = "mail";
constexpr unsigned kUserId = 8;
constexpr const char* kArchive = "Nov-2026.tar.gz";

int growing = -1;

class MonthArchive : public ::testing::Test {
 protected:
  MonthArchive() {
    panel_.makeFolder("logs");
    give(panel_.path("logs"), kUserId);
    folder_ = {Descriptor(sys::open(panel_.path("logs").c_str(), O_RDONLY | O_DIRECTORY)), panel_.path("logs")};
  }
  ~MonthArchive() override { setSafePointAction(nullptr); }

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
    return statOf(archive());
  }
  /// Puts an archive of the user's there.
  void lay(const std::string& content) const {
    writeText(archive(), content);
    give(archive(), kUserId);
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
    lay(whole + "half a log");
    EXPECT_FALSE(failing(("month_archive." + std::string(plan)), [&] { return add("c.log", "three"); })) << plan;
    EXPECT_TRUE(contentOf(archive()).substr(kGzipMarkSize) == whole.substr(kGzipMarkSize)) << plan;
  }
  lay(whole + std::string(100'000, '#'));
  ASSERT_TRUE(add("c.log", "three"));
  EXPECT_FALSE(holds(contentOf(archive()), "####"));
  EXPECT_EQ(members(), "a.log one\nb.log " + std::string(600, 'x') + "\nc.log three\n");
}

TEST_F(MonthArchive, SomebodyElsesIsCopiedOnceAndNoFurtherThanItWentThen) {
  const std::string theirs = gzipStored(std::string(60'000, '\0'));
  lay(theirs);
  const Descriptor file(sys::open(archive().c_str(), O_WRONLY | O_APPEND));
  growing = file.get();
  static int left = 1000;
  setSafePointAction([] { static_cast<void>(left-- > 0 && ::write(growing, "more", 4) == 4); });
  ASSERT_TRUE(add("a.log", "one"));
  setSafePointAction(nullptr);
  EXPECT_EQ(contentOf(archive()).substr(kGzipMarkSize, theirs.size()), theirs);
  EXPECT_FALSE(holds(contentOf(archive()), "more"));
  // A second name is a copy that is to stay what it is.
  fs::create_hard_link(archive(), panel_.path("kept"));
  const std::string kept = contentOf(archive());
  ASSERT_TRUE(add("b.log", "two"));
  EXPECT_EQ(contentOf(panel_.path("kept")), kept);
  EXPECT_EQ(look().st_nlink, 1U);
  // A mark that says more than there is, or half a number, is nobody's.
  for (const std::string& mark : {gzipMark(1 << 20), gzipMark(44), gzipMark(-1), gzipMark(50).replace(20, 1, "x")}) {
    lay(mark + theirs);
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
