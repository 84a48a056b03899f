#include "core/files/lock_file.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>

#include "core/sys/sys.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

/// Sets the clock-independent age of a lock by making it look as old as `seconds` to this process.
int takeWithAge(const std::string& path, int maximumAge, std::string& why) {
  char reason[kLockReasonSize] = "";
  const int taken = getLock(path.c_str(), maximumAge, "test", reason);
  why = reason;
  return taken;
}

}  // namespace

TEST(LockFile, SaysWhyItCannotBeHad) {
  Folder folder;
  const struct {
    std::string path;
    std::string want;
  } cases[] = {{"", "empty file_name"},
               {"x", "short file_name"},
               {folder.path("absent/file"),
                "open error for " + folder.path("absent/file.lock") + ": No such file or directory<br>\n"}};
  for (const auto& c : cases) {
    std::string why;
    EXPECT_EQ(takeWithAge(c.path, 60, why), 0);
    EXPECT_EQ(why.substr(0, c.want.size()), c.want);
  }
  const std::string path = folder.path("file");
  ASSERT_EQ(getLock(path.c_str(), "holder"), 1);
  std::string why;
  EXPECT_EQ(takeWithAge(path, 60, why), 0);
  EXPECT_EQ(why, "file is locked by another process");
  freeLock(path.c_str());
  EXPECT_FALSE(exists(path + ".lock"));
}

TEST(LockFile, TellsTheCallerWhenDebugging) {
  Folder folder;
  const std::string path = folder.path("file");
  setLockDebug(true);
  ASSERT_EQ(getLock(path.c_str(), 60, "here:7", nullptr), 1);
  setLockDebug(false);
  const std::string line = contentOf(path + ".lock");
  EXPECT_EQ(line.find(std::to_string(::getpid()) + "=time="), 0U);
  EXPECT_NE(line.find("&caller_location=here:7\n"), std::string::npos);
}

TEST(LockFile, NeverFollowsALinkAndNeverFreesAnothersLock) {
  Folder folder;
  const std::string path = folder.path("file");
  writeText(folder.path("canary"), "whole\n");
  ASSERT_EQ(::symlink(folder.path("canary").c_str(), (path + ".lock").c_str()), 0);
  std::string why;
  EXPECT_EQ(takeWithAge(path, 60, why), 0);
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

// Fifty processes find one stale lock at the same moment: never two of them hold it.
TEST(LockFile, HasOneHolderAtATime) {
  Folder folder;
  LogCapture log;
  const std::string path = folder.path("file");
  writeText(path + ".lock", "");
  ::sleep(3);
  struct Shared {
    std::atomic<int> inside, taken, collisions;
  };
  auto* shared =
      static_cast<Shared*>(::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (int i = 0; i < 50; ++i) {
    if (::fork() != 0) continue;
    FileLock lock;
    if (lock.take(path.c_str(), 2, nullptr, nullptr)) {
      if (shared->inside.fetch_add(1) != 0) shared->collisions.fetch_add(1);
      shared->taken.fetch_add(1);
      ::usleep(2000);
      shared->inside.fetch_sub(1);
      lock.release();
    }
    ::_exit(0);
  }
  while (::wait(nullptr) > 0) {
  }
  EXPECT_EQ(shared->collisions.load(), 0);
  EXPECT_GT(shared->taken.load(), 10);
  EXPECT_FALSE(exists(path + ".lock"));
  const std::string logged = log.errors();
  EXPECT_NE(logged.find("removing old lock: " + path + ".lock (age: 3 seconds)"), std::string::npos);
}
