#include "core/files/lock_file.h"

#include "support/fixtures.h"

namespace {
/// Why the lock cannot be had; "taken" when it can.
std::string whyNot(const std::string& path) {
  char reason[kLockReasonSize] = "";
  return getLock(path.c_str(), 60, "test", reason) ? "taken" : reason;
}
}  // namespace

TEST(LockFile, SaysWhyItCannotBeHad) {
  const Folder folder;
  const std::string longName = folder.path(std::string(251, 'x')), path = folder.path("file"),
                    absent = path + "/absent";
  for (const auto& [name, want] : {std::pair<std::string, std::string>{"", "empty file_name"},
                                   {"x", "short file_name"},
                                   {absent, "open error for " + absent + ".lock: No such file or directory<br>\n"},
                                   {longName, "open error for " + folder.path() + "/xxx"},
                                   {path, "taken"},
                                   {path, "file is locked by another process"}}) {
    EXPECT_TRUE(whyNot(name).starts_with(want)) << whyNot(name);
  }
  freeLock(path.c_str());
  EXPECT_FALSE(exists(path + ".lock"));
}

TEST(LockFile, TellsTheCallerInOneLineWhenDebugging) {
  const Folder folder;
  const std::string path = folder.path("file");
  setLockDebug(true);
  ASSERT_EQ(getLock(path.c_str(), 60, "here:7\nforged", nullptr), 1);
  setLockDebug(false);
  const std::string line = contentOf(path + ".lock");
  EXPECT_EQ(line.find(std::to_string(::getpid()) + "=time="), 0U);
  EXPECT_TRUE(holds(line, "&caller_location=here:7\\x0Aforged\n"));
}

TEST(LockFile, NeverFollowsALinkAndNeverFreesAnothersLock) {
  Folder folder;
  const std::string path = folder.path("file");
  writeText(folder.path("canary"), "whole\n");
  fs::create_symlink(folder.path("canary"), path + ".lock");
  EXPECT_NE(whyNot(path), "taken");
  EXPECT_EQ(contentOf(folder.path("canary")), "whole\n");
  ASSERT_EQ(::unlink((path + ".lock").c_str()), 0);
  {
    FileLock slow;
    ASSERT_EQ(slow.take(path.c_str(), 60, "slow", nullptr), 1);
    ASSERT_EQ(::unlink((path + ".lock").c_str()), 0);
    writeText(path + ".lock", "its successor's");
  }
  EXPECT_TRUE(exists(path + ".lock"));
}

// The age is that of the file system's own stamp, which no owner can set.
TEST(LockFile, GoesByAnAgeThatNobodyCanSet) {
  Folder folder;
  const LogCapture log;
  const std::string path = folder.path("file"), lock = path + ".lock";
  writeText(lock, "");
  const timespec longAgo[2] = {{1, 0}, {1, 0}};
  for (const auto& [name, later, taken] : Rows<const char*, long long, int>{
           {"young", 60, 0}, {"a little ahead", -60, 0}, {"old", 61, 1}, {"of the future", -61, 1}}) {
    if (!exists(lock)) writeText(lock, "");
    ASSERT_EQ(::utimensat(AT_FDCWD, lock.c_str(), longAgo, 0), 0);
    const FixedClock clock(statOf(lock).st_ctim.tv_sec + later);
    EXPECT_EQ(whyNot(path) == "taken", taken != 0) << name;
    if (taken != 0) freeLock(path.c_str());
  }
}

TEST(LockFile, ForLifeEndsWithItsHolder) {
  Folder folder;
  const std::string path = folder.path("file"), own = folder.path("own"), lock = path + ".lock";
  const auto takes = [&] {
    FileLock mine;
    return mine.takeForLife(path.c_str(), own.c_str(), 10800, "test", nullptr);
  };
  FileLock dying;
  EXPECT_EQ(inAProcessOfItsOwn([&] { return dying.takeForLife(path.c_str(), own.c_str(), 10800, "test", nullptr); }),
            1);
  EXPECT_TRUE(exists(lock));
  {
    FileLock living;
    EXPECT_EQ(living.takeForLife(path.c_str(), own.c_str(), 10800, "test", nullptr), 1);
    // Not even its age breaks the lock of a holder that lives.
    const FixedClock later(::time(nullptr) + 20000);
    EXPECT_EQ(takes(), 0);
    EXPECT_EQ(getLock(path.c_str(), 10800, "another program", nullptr), 0);
  }
  EXPECT_FALSE(exists(lock));
  writeText(lock, "of another program");
  EXPECT_EQ(takes(), 0);
  const FixedClock later(::time(nullptr) + 20000);
  EXPECT_EQ(takes(), 1);
}

// Fifty processes find one stale lock at the same moment: never two of them hold it.
TEST(LockFile, HasOneHolderAtATime) {
  constexpr int kAge = 10800;
  Folder folder;
  LogCapture log;
  const std::string path = folder.path("file");
  writeText(path + ".lock", "");
  const auto old = statOf(path + ".lock").st_ctim.tv_sec;
  // To a clock that stands still, the locks of the next second are young, however long the test takes.
  do {
    ::usleep(20'000);
    writeText(folder.path("probe"), "");
  } while (statOf(folder.path("probe")).st_ctim.tv_sec <= old);
  const FixedClock clock(old + kAge + 1);
  for (int i = 0; i < 50; ++i) {
    if (::fork() != 0) continue;
    FileLock lock;
    if (lock.take(path.c_str(), kAge, nullptr, nullptr)) {
      if (!fs::create_directory(folder.path("inside"))) writeText(folder.path("collision"), "");
      writeText(folder.path("taken"), "");
      ::usleep(2000);
      fs::remove(folder.path("inside"));
      lock.release();
    }
    ::_exit(0);
  }
  while (::wait(nullptr) > 0) {
  }
  EXPECT_TRUE(exists(folder.path("taken")) && !exists(folder.path("collision")));
  EXPECT_FALSE(exists(path + ".lock"));
  EXPECT_TRUE(holds(log.errors(), "removing old lock: " + path + ".lock (age: 10801 seconds)"));
}
