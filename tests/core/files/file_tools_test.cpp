#include "core/files/file_tools.h"

#include "core/files/bounded_copy.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/files/write_batch.h"
#include "core/sys/safe_point.h"
#include "core/tree/ownership.h"
#include "support/fixtures.h"

namespace {
unsigned ownerOf(const std::string& path) {
  return statOf(path).st_uid;
}

constexpr unsigned kSomebody = 12345;
constexpr const char* kNobody = "nobody";

class Ownership : public ::testing::Test {
 protected:
  Folder folder_;
  LogCapture logs_;
};
using Rename = Ownership;
}  // namespace

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
  for (const auto& [from, to, sentence] : Rows<std::string, std::string, const char*>{
           {b, "/dev/shm/zvtaskq-test", "oldpath and newpath are not on the same filesystem."},
           {b, dir, "newpath is an existing directory, but oldpath is not a directory."},
           {b, folder_.path(std::string(300, 'n')), "oldpath or newpath was too long."}}) {
    EXPECT_EQ(renameFile(from.c_str(), to.c_str(), 0), 0);
    EXPECT_EQ(std::string(getSysResult()), "Unable to move " + from + " to " + to + ": " + sentence + "<br>\n");
  }
  EXPECT_EQ(failing(".rename:EIO", [&] { return renameFile(b.c_str(), a.c_str(), 0); }), 0);
  EXPECT_EQ(std::string(getSysResult()), "Unable to move " + b + " to " + a + ": <br>\n");

  const std::string h = folder_.path("h");
  fs::create_hard_link(b, h);
  EXPECT_EQ(renameFile(b.c_str(), a.c_str(), 1), 0);
  EXPECT_EQ(std::string(getSysResult()), b + " is a hard link.  Will not rename to " + a + "<br>\n" + a +
                                             " is a hard link. Will not rename from " + b + "<br>\n");
  EXPECT_EQ(renameFile(dir.c_str(), h.c_str(), 1), 0);
  EXPECT_EQ(std::string(getSysResult()), h + " is a hard link. Will not rename from " + dir + "<br>\n");
  EXPECT_TRUE(holds(logs_.security(),
                    "HardLink found on " + b + " (2 links) or " + a + " (0 links).  Was attempting to rename.\n"));
  EXPECT_EQ(renameFile(b.c_str(), a.c_str(), 0), 1);
}

TEST(Copy, CopiesBytesModeAndHoles) {
  const Folder folder;
  const std::string from = folder.path("from"), to = folder.path("to"), link = folder.path("link");
  const std::string bytes = std::string("\0\r\n\xff", 4) + std::string(400000, 'x') + "end";
  writeText(from, bytes);
  ::chmod(from.c_str(), 0640);
  writeText(link + ".target", "canary");
  fs::create_symlink(link + ".target", link);
  for (const std::string& target : {to, link}) {
    ASSERT_EQ(copyFile(from.c_str(), target.c_str()), 1) << std::strerror(errno);
    EXPECT_TRUE(contentOf(target) == bytes) << statOf(target).st_size;
    EXPECT_EQ(modeOf(target), 0640U);
  }
  EXPECT_EQ(contentOf(link + ".target"), "canary");
  ASSERT_EQ(::truncate(from.c_str(), 1LL << 40), 0);
  ASSERT_EQ(copyFile(from.c_str(), to.c_str(), 0600), 1) << std::strerror(errno);
  const struct stat what = statOf(to);
  EXPECT_TRUE(what.st_size == 1LL << 40 && what.st_blocks < 10000) << what.st_size << " " << what.st_blocks;
  EXPECT_EQ(modeOf(to), 0600U);

  ASSERT_EQ(::truncate(from.c_str(), 1000), 0);
  ASSERT_EQ(::truncate(from.c_str(), 1 << 20), 0);
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
  fs::create_symlink(from, folder.path("source"));
  EXPECT_EQ(copyFile(folder.path("source").c_str(), to.c_str()), 0);
  ::mkfifo(folder.path("fifo").c_str(), 0600);
  EXPECT_EQ(copyFile(folder.path("fifo").c_str(), to.c_str()), 0);
  // No half-made copy is left behind.
  for (const auto& entry : fs::directory_iterator(folder.path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("to.")) << entry.path();
  }
}

namespace {
/// What its owner does to a file whenever the copy comes by.
int grown = -1, growths = 0;
void growIt() {
  static const std::string more(300'000, '+');
  ++growths;
  EXPECT_EQ(::pwrite(grown, more.data(), more.size(), ::lseek(grown, 0, SEEK_END)), 300'000);
}
}  // namespace

TEST(Copy, EndsHoweverTheFileGrows) {
  const Folder folder;
  for (const auto& [name, toEnd, mostData, seconds, want, error] :
       Rows<const char*, bool, long long, int, int, int>{{"the size first seen", false, LLONG_MAX, 60, 1, 0},
                                                         {"the most data", true, 2'000'000, 60, 0, EFBIG},
                                                         {"time", false, LLONG_MAX, 0, 0, ETIMEDOUT}}) {
    writeText(folder.path("from"), std::string(1'000'000, 'x'));
    writeText(folder.path("to"), "before");
    const Descriptor from(::open(folder.path("from").c_str(), O_RDWR)), to(::open(folder.path("to").c_str(), O_WRONLY));
    ASSERT_EQ(::lseek(to.get(), 6, SEEK_SET), 6);
    const Descriptor theirs(::open(folder.path("from").c_str(), O_WRONLY));
    grown = theirs.get();
    growths = 0;
    setSafePointAction(growIt);
    BoundedCopy copy(from.get(), to.get(), mostData, seconds);
    errno = 0;
    EXPECT_EQ(toEnd ? copy.toEnd() : copy.upTo(1'000'000), want) << name;
    EXPECT_EQ(errno, error) << name;
    setSafePointAction(nullptr);
    EXPECT_GT(growths, 0) << name;
    EXPECT_TRUE(want == 0 || contentOf(folder.path("to")) == "before" + std::string(1'000'000, 'x')) << name;
  }
}

TEST(Copy, TheFolderIsFlushedToo) {
  const Folder folder;
  writeText(folder.path("from"), "new");
  const auto copy = [&] { return copyFile(folder.path("from").c_str(), folder.path("copied").c_str()); };
  const auto replace = [&] {
    SafeFile file(folder.path("safe").c_str());
    if (!file.open()) return 0;
    file.write("new");
    return file.finish() && file.putInPlace() ? 1 : 0;
  };
  // The content is flushed first; whoever dies in the second flush has the file in place already.
  EXPECT_EXIT(::_exit(failing(".fsync:kill:1", copy)), ::testing::KilledBySignal(SIGKILL), "");
  EXPECT_EXIT(::_exit(failing("safe_write.fsync:kill:1", replace)), ::testing::KilledBySignal(SIGKILL), "");
  for (const char* name : {"copied", "safe"}) EXPECT_EQ(contentOf(folder.path(name)), "new") << name;
}

TEST(WriteBatch, EachFileIsTheOldOrTheNewOne) {
  const std::vector<std::string> names{"a", "one/b", "c", "one/d"};
  const auto expectAfter = [&](const std::string& plan, const char* contents) {
    const LogCapture said;
    const Folder folder;
    fs::create_directory(folder.path("one"));
    for (const std::string& name : names) writeText(folder.path(name), "o");
    const auto write = [&] {
      WriteBatch batch;
      for (const std::string& name : names) {
        auto file = std::make_unique<SafeFile>(folder.path(name).c_str());
        if (!file->open()) return -1;
        file->write("n");
        if (!file->writeOut()) return -1;
        batch.add(std::move(file));
      }
      return batch.commit();
    };
    if (holds(plan, "kill")) {
      EXPECT_EXIT(::_exit(failing(plan, write)), ::testing::KilledBySignal(SIGKILL), "");
    } else {
      EXPECT_EQ(failing(plan, write), plan.empty() ? 1 : 0) << plan;
      EXPECT_EQ(times(said.errors(), "Unable to move "), plan.empty() ? 0 : 2) << plan;
    }
    std::string found;
    for (const std::string& name : names) found += contentOf(folder.path(name));
    EXPECT_EQ(found, contents) << plan;
  };
  expectAfter("", "nnnn");
  for (const std::string call : {"safe_write.fsync", "safe_write.rename"}) {
    expectAfter(call + ":EIO:2", "nnoo");
    expectAfter(call + ":kill:0", "oooo");
    expectAfter(call + ":kill:2", "nnoo");
  }
}

TEST_F(Ownership, KeepsToItsConditions) {
  const std::string file = folder_.path("f"), link = folder_.path("l"), hard = folder_.path("h");
  writeText(file, "x");
  fs::create_symlink(file, link);
  EXPECT_EQ(setOwner(link.c_str(), kSomebody, 1), 1);
  EXPECT_TRUE(ownerOf(link) == kSomebody && ownerOf(file) == 0);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 0, 77, 78), 0);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 1, 0, 77, 0), 1);
  EXPECT_EQ(setOwner(file.c_str(), 0U, 0U, 1, 1, kSomebody, -1), 1);
  EXPECT_EQ(ownerOf(file), 0U);
  EXPECT_EQ(logs_.errors(), "");
  EXPECT_EQ(failing(".rename:EROFS", [&] { return setOwner(file.c_str(), kSomebody, 1, 1, 1); }), 0);
  EXPECT_TRUE(holds(logs_.errors(), "setOwner(secure_chown): error renaming " + file + " to " + folder_.path(".")));
  EXPECT_EQ(failing(".rename:EROFS:1", [&] { return setOwner(file.c_str(), kSomebody, 1, 1, 1); }), 0);
  EXPECT_TRUE(holds(logs_.errors(), " back to " + file + ": Read-only file system"));

  writeText(file, "x");
  fs::create_hard_link(file, hard);
  EXPECT_EQ(setOwner(file.c_str(), kSomebody, 1, 0), 1);
  EXPECT_EQ(setOwner(hard.c_str(), 7U, 8U, 1), 0);
  EXPECT_EQ(ownerOf(file), kSomebody);
  const std::string line =
      "HardLink found on " + hard + " (2 links).  Was attempting to be reset to owner UID(7) GID(8)\n";
  EXPECT_TRUE(holds(logs_.security(), line) && holds(logs_.errors(), line));
  EXPECT_EQ(setOwner(file.c_str(), "nosuchuser", kNobody) + setOwner(file.c_str(), kNobody, "nosuchgroup"), 0);
  EXPECT_EQ(ownerOf(file), kSomebody);
  EXPECT_EQ(setOwner(file.c_str(), kNobody, "nogroup"), 1);
  EXPECT_EQ(ownerOf(file), nobodyIds().user);
  EXPECT_EQ(setOwner("/no/such", 1U, 1U) + setOwner(nullptr, 1U, 1U, 1, 1), 0);
}

TEST_F(Ownership, GivesWholeTreesWithoutLeavingThem) {
  const std::string tree = folder_.path("tree"), canary = folder_.path("canary"), outside = folder_.path("outside");
  writeText(canary, "c");
  ASSERT_EQ(::mkdir(outside.c_str(), 0755), 0);
  writeText(outside + "/file", "o");
  fs::create_directories(tree + "/a/b");
  writeText(tree + "/a/b/file", "");
  fs::create_symlink(outside, tree + "/a/out");
  fs::create_symlink(canary, tree + "/a/b/canary");
  EXPECT_EQ(setOwnerRecursive_secure(tree.c_str(), kNobody, kNobody), 1);
  for (const char* name : {"", "/a", "/a/b", "/a/b/file", "/a/out", "/a/b/canary"}) {
    EXPECT_EQ(ownerOf(tree + name), nobodyIds().user) << name;
  }
  fs::create_hard_link(canary, tree + "/a/hard");
  writeText(tree + "/z", "");
  EXPECT_EQ(setOwnerRecursive_secure(tree.c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(ownerOf(tree + "/z"), nobodyIds().user);
  EXPECT_TRUE(holds(logs_.security(), "HardLink found on " + tree + "/a/hard (2 links)"));
  for (const std::string& spared : {canary, outside, outside + "/file"}) EXPECT_EQ(ownerOf(spared), 0U) << spared;
  EXPECT_EQ(setOwnerRecursive((outside).c_str(), kSomebody, 1U), 1);
  EXPECT_EQ(ownerOf(outside + "/file"), kSomebody);
  EXPECT_EQ(setOwnerRecursive("/no/such", 1U, 1U), 0);

  ::chmod(outside.c_str(), 02751);
  EXPECT_EQ(copy_dir_permission(outside.c_str(), tree.c_str()), 1);
  EXPECT_TRUE(modeOf(tree) == 02751 && ownerOf(tree) == kSomebody);
  fs::create_symlink(outside, folder_.path("dirlink"));
  EXPECT_EQ(copy_dir_permission(tree.c_str(), folder_.path("dirlink").c_str()), 0);
}

TEST(Look, TailAndGrep) {
  const Folder folder;
  const std::string file = folder.path("log");
  std::string all, out;
  for (int i = 0; i < 50000; ++i) all += "line " + std::to_string(i) + "\n";
  writeText(file, all);
  EXPECT_TRUE(tail(file.c_str(), 2, out) == 1 && out == "line 49998\nline 49999\n");
  EXPECT_TRUE(tail(file.c_str(), 49000, out) == 1 && times(out, "\n") == 49000);
  writeText(file, all + "Unfinished");
  EXPECT_TRUE(tail(file.c_str(), 2, out) == 1 && out == "line 49999\nUnfinished");
  EXPECT_TRUE(tail(file.c_str(), 90000, out) == 1 && out == all + "Unfinished");
  EXPECT_TRUE(grep(file.c_str(), "line 4999", out) == 11 && out.starts_with("line 4999\nline 49990"));
  EXPECT_TRUE(grep(file.c_str(), "LINE 49998", out) == 0 && grep(file.c_str(), "LINE 49998", out, 1) == 1);
  EXPECT_TRUE(grep(file.c_str(), "", out, 0, 100) == 50000 && out.size() <= 100);
}
