#include "core/file_tools.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>

#include "core/fail_point.h"
#include "core/identity.h"
#include "core/list_file.h"
#include "core/names.h"
#include "core/ownership.h"
#include "core/path_lists.h"
#include "core/paths.h"
#include "core/random.h"
#include "core/safe_walk.h"
#include "core/system_info.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

std::string linesOf(const ListFile& list) {
  std::string all;
  for (int i = 0; i < list.size(); ++i) all += std::string(list.getElementAt(i)) + ";";
  return all;
}

unsigned ownerOf(const std::string& path) {
  struct stat what {};
  return ::lstat(path.c_str(), &what) == 0 ? what.st_uid : kUnknownId;
}

void makeLink(const std::string& to, const std::string& at) {
  ASSERT_EQ(::symlink(to.c_str(), at.c_str()), 0);
}
void makeHardLink(const std::string& to, const std::string& at) {
  ASSERT_EQ(::link(to.c_str(), at.c_str()), 0);
}

constexpr unsigned kSomebody = 12345;
constexpr const char* kNobody = "nobody";

class AsRootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (realIds().user != 0) GTEST_SKIP() << "needs root";
    ASSERT_TRUE(switchEffective(kRootIds));
  }
  Folder folder_;
  LogCapture logs_;
};
using Ownership = AsRootTest;
using Rename = AsRootTest;

}  // namespace

TEST(Paths, CreatesAndLists) {
  const Folder folder;
  ::umask(077);
  const std::string a = folder.path("a");
  ASSERT_EQ(::mkdir(a.c_str(), 0700), 0);
  const int depth = static_cast<int>(std::count(a.begin(), a.end(), '/')) - 1;
  ListFile created(nullptr);
  created.keepOrder = true;
  systemResult() = "old";
  EXPECT_EQ(createPath((a + "/b/c").c_str(), 0755, depth, &created), 1);
  EXPECT_STREQ(getSysResult(), "");
  EXPECT_EQ(linesOf(created), a + "/b;" + a + "/b/c;");
  EXPECT_EQ(modeOf(a + "/b"), 0755U);
  EXPECT_EQ(modeOf(a), 0700U);
  EXPECT_EQ(createPath((a + "/b/c/").c_str(), 0755, 1, &created), 1);
  EXPECT_EQ(created.size(), 2);
  writeText(a + "/file", "");
  EXPECT_EQ(createPath((a + "/x/y").c_str(), 01731, 0, nullptr), 1);
  EXPECT_EQ(modeOf(a + "/x/y"), 01731U);
  EXPECT_EQ(createPath((a + "/file").c_str(), 0755, 0, &created), 0);
  EXPECT_EQ(createPath((a + "/file/z").c_str(), 0755, 0, &created), 0);
  EXPECT_NE(std::string(getSysResult()).find("/file: File exists<br>\n"), std::string::npos) << getSysResult();
  EXPECT_EQ(createPath("", 0755, 0, nullptr), 0);
  EXPECT_EQ(createPath(nullptr, 0755, 0, nullptr), 0);
}

TEST(Paths, TellsWhatIsThere) {
  const Folder folder;
  const std::string file = folder.path("f"), link = folder.path("l"), other = folder.path("o"), tree = folder.path("t");
  writeText(file, "12345");
  makeLink(file, link);
  EXPECT_EQ(pathExists(file.c_str()), 1);
  EXPECT_EQ(pathExists(folder.path().c_str(), PathKind::file), 0);
  EXPECT_EQ(pathExists(folder.path().c_str(), PathKind::folder), 1);
  EXPECT_EQ(pathExists(nullptr), 0);
  EXPECT_EQ(fileSize(link.c_str()), 5);
  EXPECT_EQ(fileSize("/no/such"), -1);
  EXPECT_EQ(isLink(link.c_str()), 1);
  EXPECT_EQ(isLink(file.c_str()), 0);
  EXPECT_EQ(isHardLink(file.c_str()), 0);
  EXPECT_EQ(isHardLink(folder.path().c_str()), 0);

  ASSERT_TRUE(createPath((tree + "/deep/er").c_str(), 0755, 0, nullptr));
  makeLink(folder.path(), tree + "/deep/out");
  EXPECT_EQ(pathContainsHardLink(tree.c_str()), 0);
  makeHardLink(file, tree + "/deep/er/h");
  EXPECT_EQ(isHardLink((tree + "/deep/er/h").c_str()), 2);
  ListFile found(nullptr);
  EXPECT_EQ(pathContainsHardLink(tree.c_str(), &found), 1);
  EXPECT_EQ(linesOf(found), tree + "/deep/er/h;");
  EXPECT_EQ(unlinkFile(link.c_str()), 1);
  EXPECT_EQ(contentOf(file), "12345");
  EXPECT_EQ(unlinkFile(link.c_str()), 0);
}

TEST_F(Rename, SaysHowItWent) {
  const std::string a = folder_.path("a"), b = folder_.path("b"), dir = folder_.path("dir");
  writeText(a, "a");
  EXPECT_EQ(renameFile("", b.c_str(), 0), 0);
  EXPECT_STREQ(getSysResult(), "One of the paths was empty or null<br>\n");
  EXPECT_EQ(renameFile(a.c_str(), nullptr, 0), 0);
  EXPECT_EQ(renameFile(a.c_str(), b.c_str(), 1), 1);
  EXPECT_STREQ(getSysResult(), "File successfully renamed<br>\n");
  EXPECT_EQ(contentOf(b), "a");

  ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
  writeText(dir + "/x", "");
  const struct {
    std::string from, to;
    const char* sentence;
  } cases[] = {
      {b, "/dev/shm/zvtaskq-test", "oldpath and newpath are not on the same filesystem."},
      {b, dir, "newpath is an existing directory, but oldpath is not a directory."},
      {dir, dir + "/y",
       "The new pathname contained a path prefix of the old, or, more generally, an attempt was made to make a "
       "directory "
       "a subdirectory of itself."},
      {folder_.path("none"), a,
       "The link named by oldpath does not exist; or, a directory component in newpath does not exist; or, oldpath or "
       "newpath is an empty string."},
      {b, folder_.path(std::string(300, 'n')), "oldpath or newpath was too long."}};
  for (const auto& c : cases) {
    EXPECT_EQ(renameFile(c.from.c_str(), c.to.c_str(), 0), 0);
    EXPECT_EQ(std::string(getSysResult()), "Unable to move " + c.from + " to " + c.to + ": " + c.sentence + "<br>\n");
  }
  setFailPlan(".rename:EIO");
  EXPECT_EQ(renameFile(b.c_str(), a.c_str(), 0), 0);
  setFailPlan(nullptr);
  EXPECT_EQ(std::string(getSysResult()), "Unable to move " + b + " to " + a + ": <br>\n");

  const std::string h = folder_.path("h");
  makeHardLink(b, h);
  EXPECT_EQ(renameFile(b.c_str(), a.c_str(), 1), 0);
  EXPECT_EQ(std::string(getSysResult()), b + " is a hard link.  Will not rename to " + a + "<br>\n" + a +
                                             " is a hard link. Will not rename from " + b + "<br>\n");
  EXPECT_EQ(renameFile(dir.c_str(), h.c_str(), 1), 0);
  EXPECT_EQ(std::string(getSysResult()), h + " is a hard link. Will not rename from " + dir + "<br>\n");
  EXPECT_NE(logs_.security().find("HardLink found on " + b + " (2 links) or " + a +
                                  " (0 links).  Was attempting to rename.\n"),
            std::string::npos);
  EXPECT_EQ(renameFile(b.c_str(), a.c_str(), 0), 1);
}

TEST(Copy, CopiesBytesModeAndHoles) {
  const Folder folder;
  const std::string from = folder.path("from"), to = folder.path("to"), link = folder.path("link");
  const std::string bytes = std::string("\0\r\n\xff", 4) + std::string(400000, 'x') + "end";
  writeText(from, bytes);
  ::chmod(from.c_str(), 0640);
  writeText(link + ".target", "canary");
  makeLink(link + ".target", link);
  for (const std::string& target : {to, link}) {
    ASSERT_EQ(copyFile(from.c_str(), target.c_str()), 1);
    EXPECT_EQ(contentOf(target), bytes);
    EXPECT_EQ(modeOf(target), 0640U);
  }
  EXPECT_EQ(contentOf(link + ".target"), "canary");
  ASSERT_EQ(::truncate(from.c_str(), 1LL << 40), 0);
  ASSERT_EQ(copyFile(from.c_str(), to.c_str(), 0600), 1);
  struct stat what {};
  ::stat(to.c_str(), &what);
  EXPECT_EQ(what.st_size, 1LL << 40);
  EXPECT_LT(what.st_blocks, 10000);
  EXPECT_EQ(modeOf(to), 0600U);

  ASSERT_EQ(::truncate(from.c_str(), 1000), 0);
  writeText(to, "old");
  for (const char* plan : {".open:ENOSPC:1", ".read:EIO", ".write:short", ".write:ENOSPC", ".ftruncate:EIO",
                           ".chmod:EPERM", ".fsync:EIO", ".close:EDQUOT", ".rename:EROFS"}) {
    setFailPlan(plan);
    errno = 0;
    EXPECT_EQ(copyFile(from.c_str(), to.c_str()), 0) << plan;
    EXPECT_NE(errno, 0) << plan;
    setFailPlan(nullptr);
    EXPECT_EQ(contentOf(to), "old") << plan;
  }
  makeLink(from, folder.path("source"));
  EXPECT_EQ(copyFile(folder.path("source").c_str(), to.c_str()), 0);
  ::mkfifo(folder.path("fifo").c_str(), 0600);
  EXPECT_EQ(copyFile(folder.path("fifo").c_str(), to.c_str()), 0);
  // No half-made copy is left behind.
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("to.")) << entry.path();
  }
}

TEST_F(Ownership, KeepsToItsConditions) {
  const std::string file = folder_.path("f"), link = folder_.path("l"), hard = folder_.path("h");
  writeText(file, "x");
  makeLink(file, link);
  EXPECT_EQ(setOwner(link.c_str(), kSomebody, 1), 1);
  EXPECT_EQ(ownerOf(link), kSomebody);
  EXPECT_EQ(ownerOf(file), 0U);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 0, 77, 78), 0);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 0, 77, 0), 1);
  EXPECT_EQ(setOwner(file.c_str(), 0U, 0U, 1, 1, kSomebody, -1), 1);
  EXPECT_EQ(ownerOf(file), 0U);
  EXPECT_EQ(logs_.errors(), "");

  setFailPlan(".rename:EROFS");
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 1), 0);
  EXPECT_NE(logs_.errors().find("setOwner(secure_chown): error renaming " + file + " to " + folder_.path(".")),
            std::string::npos);
  setFailPlan(".rename:EROFS:1");
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 1), 0);
  setFailPlan(nullptr);
  EXPECT_NE(logs_.errors().find(" back to " + file + ": Read-only file system"), std::string::npos) << logs_.errors();

  writeText(file, "x");
  makeHardLink(file, hard);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 0), 1);
  EXPECT_EQ(setOwner(hard.c_str(), 7U, 8U, 1), 0);
  EXPECT_EQ(ownerOf(file), kSomebody);
  const std::string line =
      "HardLink found on " + hard + " (2 links).  Was attempting to be reset to owner UID(7) GID(8)\n";
  EXPECT_NE(logs_.security().find(line), std::string::npos);
  EXPECT_NE(logs_.errors().find(line), std::string::npos);
  EXPECT_EQ(setOwner(file.c_str(), "nosuchuser", kNobody), 0);
  EXPECT_EQ(setOwner(file.c_str(), kNobody, "nosuchgroup"), 0);
  EXPECT_EQ(ownerOf(file), kSomebody);
  EXPECT_EQ(setOwner(file.c_str(), kNobody, "nogroup"), 1);
  EXPECT_EQ(ownerOf(file), nobodyIds().user);
  EXPECT_EQ(setOwner("/no/such", 1U, 1U), 0);
  EXPECT_EQ(setOwner(nullptr, 1U, 1U, 1, 1), 0);
}

TEST_F(Ownership, GivesWholeTreesWithoutLeavingThem) {
  const std::string tree = folder_.path("tree"), canary = folder_.path("canary"), outside = folder_.path("outside");
  writeText(canary, "c");
  ASSERT_EQ(::mkdir(outside.c_str(), 0755), 0);
  writeText(outside + "/file", "o");
  ASSERT_TRUE(createPath((tree + "/a/b").c_str(), 0755, 0, nullptr));
  writeText(tree + "/a/b/file", "");
  makeLink(outside, tree + "/a/out");
  makeLink(canary, tree + "/a/b/canary");
  EXPECT_EQ(setOwnerRecursive_secure(tree.c_str(), kNobody, kNobody), 1);
  for (const char* name : {"", "/a", "/a/b", "/a/b/file", "/a/out", "/a/b/canary"}) {
    EXPECT_EQ(ownerOf(tree + name), nobodyIds().user) << name;
  }
  makeHardLink(canary, tree + "/a/hard");
  writeText(tree + "/z", "");
  EXPECT_EQ(setOwnerRecursive_secure(tree.c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(ownerOf(tree + "/z"), nobodyIds().user);
  EXPECT_NE(logs_.security().find("HardLink found on " + tree + "/a/hard (2 links)"), std::string::npos);
  for (const std::string& spared : {canary, outside, outside + "/file"}) EXPECT_EQ(ownerOf(spared), 0U) << spared;
  EXPECT_EQ(setOwnerRecursive((outside).c_str(), kSomebody, 1U), 1);
  EXPECT_EQ(ownerOf(outside + "/file"), kSomebody);
  EXPECT_EQ(setOwnerRecursive("/no/such", 1U, 1U), 0);

  ::chmod(outside.c_str(), 02751);
  EXPECT_EQ(copy_dir_permission(outside.c_str(), tree.c_str()), 1);
  EXPECT_EQ(modeOf(tree), 02751U);
  EXPECT_EQ(ownerOf(tree), kSomebody);
  makeLink(outside, folder_.path("dirlink"));
  EXPECT_EQ(copy_dir_permission(tree.c_str(), folder_.path("dirlink").c_str()), 0);
}

TEST(Walk, GoesAsDeepAsItGets) {
  constexpr int kDepth = 20000;
  const Folder folder;
  Descriptor here(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY));
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(::mkdirat(here.get(), "d", 0755), 0);
    here = Descriptor(::openat(here.get(), "d", O_RDONLY | O_DIRECTORY));
  }
  here.reset();
  int met = 0, removed = 0;
  const int whole = walkTree(folder.path("d").c_str(), [&](const TreeEntry& entry) {
    ++met;
    if (entry.leaving && ::unlinkat(entry.folder, entry.name, AT_REMOVEDIR) == 0) ++removed;
    return 1;
  });
  EXPECT_EQ(whole, 1);
  EXPECT_EQ(met, 2 * kDepth);
  EXPECT_EQ(removed, kDepth);
  EXPECT_FALSE(exists(folder.path("d")));
}

TEST(Walk, OpensOnlyBeneath) {
  const Folder folder;
  ASSERT_TRUE(createPath(folder.path("a/b").c_str(), 0755, 0, nullptr));
  writeText(folder.path("a/b/file"), "in");
  makeLink("b", folder.path("a/link"));
  makeLink("file", folder.path("a/b/end"));
  const Descriptor root = openFolder(folder.path().c_str());
  for (const bool steps : {false, true}) {
    const auto open = [&](const char* path, int flags) {
      setFailPlan(steps ? ".openat2:ENOSYS" : nullptr);
      Descriptor opened = openBeneath(root.get(), path, flags, 0600);
      setFailPlan(nullptr);
      return opened;
    };
    for (const char* path : {"a/b/file", "a//b/file", "a/./b/file"}) {
      EXPECT_TRUE(open(path, O_RDONLY)) << path << steps;
    }
    for (const char* path : {"a/link/file", "a/b/end", "../etc", "a/../a/b/file", "/etc/passwd", "", "a/none"}) {
      EXPECT_FALSE(open(path, O_RDONLY)) << path << steps;
    }
    EXPECT_TRUE(open("a/b/new", O_WRONLY | O_CREAT | O_EXCL)) << steps;
    EXPECT_EQ(modeOf(folder.path("a/b/new")), 0600U);
    ::unlink(folder.path("a/b/new").c_str());
  }
}

TEST(Look, TailAndGrep) {
  const Folder folder;
  const std::string file = folder.path("log");
  std::string all;
  for (int i = 0; i < 50000; ++i) all += "line " + std::to_string(i) + "\n";
  writeText(file, all + "Unfinished");
  std::string out;
  const struct {
    int lines;
    std::string want;
  } cases[] = {{1, "Unfinished"}, {2, "line 49999\nUnfinished"}, {0, ""}, {90000, all + "Unfinished"}};
  for (const auto& c : cases) {
    ASSERT_EQ(tail(file.c_str(), c.lines, out), 1);
    EXPECT_TRUE(out == c.want) << c.lines;
  }
  ASSERT_EQ(tail(file.c_str(), 49000, out), 1);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 48999);
  writeText(file, all);
  ASSERT_EQ(tail(file.c_str(), 2, out), 1);
  EXPECT_EQ(out, "line 49998\nline 49999\n");
  EXPECT_EQ(grep(file.c_str(), "line 4999", out), 11);
  EXPECT_EQ(out.substr(0, 20), "line 4999\nline 49990");
  EXPECT_EQ(grep(file.c_str(), "LINE 49998", out), 0);
  EXPECT_EQ(grep(file.c_str(), "LINE 49998", out, 1), 1);
  EXPECT_EQ(grep(file.c_str(), "", out, 0, 100), 50000);
  EXPECT_LE(out.size(), 100U);
  EXPECT_EQ(grep("/no/such", "x", out), -1);
  EXPECT_EQ(tail(folder.path().c_str(), 2, out), 0);
}

TEST(Random, IsEvenAndWithinItsBounds) {
  int counts[6] = {};
  for (int i = 0; i < 60000; ++i) {
    const int number = getRandNumber(-2, 3, i % 100 == 0);
    ASSERT_GE(number, -2);
    ASSERT_LE(number, 3);
    ++counts[number + 2];
  }
  for (int count : counts) EXPECT_NEAR(count, 10000, 600);
  EXPECT_EQ(getRandNumber(5, 5), 5);
  EXPECT_EQ(getRandNumber(5, 4), 5);
  bool high = false, low = false;
  for (int i = 0; i < 200; ++i) (getRandNumber(INT_MIN, INT_MAX) > 0 ? high : low) = true;
  EXPECT_TRUE(high && low);
  EXPECT_NE(getRandText(20), getRandText(20));
}

TEST(Names, AreWhatTheySay) {
  const struct {
    const char* text;
    int ipv4, ipv6, user, domain;
  } cases[] = {{"192.0.2.1", 1, 0, 0, 0},
               {"192.0.2.01", 0, 0, 0, 0},
               {"192.0.2", 0, 0, 0, 0},
               {"::1", 0, 1, 0, 0},
               {"fe80::1%eth0", 0, 0, 0, 0},
               {"bob", 0, 0, 1, 0},
               {"bob-2_x", 0, 0, 1, 0},
               {"2bob", 0, 0, 0, 0},
               {"Bob", 0, 0, 0, 0},
               {"../bob", 0, 0, 0, 0},
               {"", 0, 0, 0, 0},
               {"a.example", 0, 0, 0, 1},
               {"-a.example", 0, 0, 0, 0},
               {"a..example", 0, 0, 0, 0},
               {"a.example.", 0, 0, 0, 0},
               {"a_b.example", 0, 0, 0, 0},
               {"a.example\n", 0, 0, 0, 0},
               {"bob\n", 0, 0, 0, 0},
               {"xn--a.xn--b1", 0, 0, 0, 1},
               {nullptr, 0, 0, 0, 0}};
  for (const auto& c : cases) {
    const char* name = c.text == nullptr ? "(null)" : c.text;
    EXPECT_EQ(isValidIPv4(c.text), c.ipv4) << name;
    EXPECT_EQ(isValidIPv6(c.text), c.ipv6) << name;
    EXPECT_EQ(isValidUsername(c.text), c.user) << name;
    EXPECT_EQ(isValidDomain(c.text), c.domain) << name;
  }
  EXPECT_EQ(isValidUsername("Bob", 10, 1), 1);
  EXPECT_EQ(isValidUsername("elevenchars", 10), 0);
  EXPECT_EQ(isValidDomain((std::string(64, 'a') + ".example").c_str()), 0);
}

TEST(SystemInfo, Answers) {
  EXPECT_EQ(resolveIPv4("127.0.0.1"), "127.0.0.1");
  EXPECT_EQ(resolveIPv4("localhost"), "127.0.0.1");
  EXPECT_EQ(resolveIPv4("-s"), "");
  EXPECT_EQ(resolveIPv4("a b"), "");
  EXPECT_EQ(getHostName().find('\n'), std::string::npos);
  double one = -1, five = -1, fifteen = -1;
  EXPECT_EQ(getLoadAverage(one, five, fifteen), 1);
  EXPECT_GE(fifteen, 0);
}
