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
  ASSERT_EQ(::symlink(folder.path("canary").c_str(), (path + ".lock").c_str()), 0);
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
  EXPECT_TRUE(holds(logged, "removing old lock: " + path + ".lock (age: 3 seconds)"));
}
