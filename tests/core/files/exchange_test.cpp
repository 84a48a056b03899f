// What the owner of a folder exchanges between a look and the work leads nowhere else.
#include "core/files/file_tools.h"
#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/tree/ownership.h"
#include "support/fixtures.h"

namespace {
constexpr int kRounds = 3000;
constexpr unsigned kOwner = 8;

class Exchanged : public testing::Test {
 protected:
  Exchanged() {
    for (const char* name : {"theirs", "ours"}) fs::create_directory(folder_.path(name));
    give(theirs(""), kOwner);
    writeText(ours("file"), "ours");
    writeText(theirs("file"), "theirs");
  }
  std::string theirs(const std::string& name) const { return folder_.path("theirs/" + name); }
  std::string ours(const std::string& name) const { return folder_.path("ours/" + name); }
  Folder folder_;
  LogCapture logs_;
};
}  // namespace

TEST_F(Exchanged, OnlyALinkOfRootsIsFollowed) {
  fs::create_symlink(ours("file"), theirs("own"));
  fs::create_symlink(theirs("file"), theirs("roots"));
  give(theirs("own"), kOwner);
  const Exchange exchange(theirs(""), "own", "roots");
  for (int i = 0; i < kRounds * 10; ++i) {
    const Descriptor file = openRegularFile(theirs("own").c_str());
    char text[8] = "";
    if (!file) continue;
    ASSERT_EQ(::read(file.get(), text, 6), 6);
    ASSERT_STREQ(text, "theirs");
  }
}

TEST_F(Exchanged, LinksOfRootsMayLeadOnToOthersOfRoots) {
  fs::create_symlink("../theirs/second", ours("first"));
  fs::create_symlink("file", theirs("second"));
  EXPECT_TRUE(openRegularFile(ours("first").c_str()));
  give(theirs("second"), kOwner);
  errno = 0;
  EXPECT_FALSE(openRegularFile(ours("first").c_str()));
  EXPECT_EQ(errno, ELOOP);
  fs::create_symlink("ring", ours("ring"));
  EXPECT_FALSE(openRegularFile(ours("ring").c_str()));
}

TEST_F(Exchanged, AFileWithAnotherNameIsNeitherGivenNorMoved) {
  fs::create_hard_link(ours("file"), theirs("hard"));
  const Exchange exchange(theirs(""), "file", "hard");
  for (int i = 0; i < kRounds; ++i) {
    static_cast<void>(setOwner(theirs("file").c_str(), kOwner, kOwner, 1));
    ASSERT_EQ(statOf(ours("file")).st_uid, 0U);
    if (!renameFile(theirs("file").c_str(), ours("moved").c_str(), 1)) continue;
    ASSERT_EQ(contentOf(ours("moved")), "theirs");
    fs::rename(ours("moved"), theirs("file"));
  }
}

TEST_F(Exchanged, LocksAndNewContentStayInOneFolder) {
  fs::create_directory(theirs("folder"));
  fs::create_symlink(folder_.path("ours"), theirs("link"));
  {
    const Exchange exchange(theirs(""), "folder", "link");
    for (int i = 0; i < kRounds; ++i) {
      FileLock lock;
      ASSERT_EQ(lock.take(theirs("folder/record").c_str(), 60, "test", nullptr), 1);
      lock.release();
      SafeFile file(theirs("folder/record").c_str());
      ASSERT_TRUE(file.open() && file.putInPlace()) << i;
    }
  }
  for (const std::string& folder : {ours(""), theirs("folder"), theirs("link")}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      EXPECT_TRUE(entry.path().filename() == "file" || entry.path().filename() == "record") << entry.path();
    }
  }
}
