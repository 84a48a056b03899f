#include "core/tree/safe_walk.h"

#include "support/fixtures.h"

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
  EXPECT_TRUE(whole == 1 && met == 2 * kDepth && removed == kDepth) << met << " " << removed;
  EXPECT_FALSE(exists(folder.path("d")));
}

TEST(Walk, WhoMovesFoldersAboutCostsHisOwnAlone) {
  using Moves = std::vector<std::pair<const char*, const char*>>;
  const struct {
    const char* name;
    Moves moves;
    int whole;
  } cases[] = {{"the folder that the walk is in", {{"two/in/deep", "two/deep"}}, 1},
               {"one above it", {{"two/in", "in"}}, 1},
               {"out of the tree", {{"two/in", "../in"}}, 1},
               {"both", {{"two/in/deep", "../deep"}, {"two/in", "../in"}}, 0}};
  for (const auto& c : cases) {
    const Folder folder;
    std::set<std::string> missing{"one/file", "three/file", "two/in/deep/file", "two/in/rest/file"};
    for (const std::string& file : missing) {
      fs::create_directories(folder.path("top/" + file.substr(0, file.size() - 5)));
      writeText(folder.path("top/" + file), "");
    }
    const auto visit = [&](const TreeEntry& entry) {
      const std::string file = entry.path.substr(folder.path("top").size());
      if (missing.erase(file.substr(file.empty() ? 0 : 1)) == 0 || file != "/two/in/deep/file") return 1;
      for (const auto& [from, to] : c.moves) fs::rename(folder.path("top/") + from, folder.path("top/") + to);
      return 1;
    };
    EXPECT_EQ(walkTree(folder.path("top").c_str(), visit), c.whole) << c.name;
    if (c.whole == 0) missing.erase("two/in/rest/file");
    EXPECT_TRUE(missing.empty()) << c.name << ": " << *missing.begin();
  }
  // One that is gone between the look and the visit is none.
  const Folder folder;
  fs::create_directories(folder.path("gone"));
  EXPECT_TRUE(walkTree(folder.path().c_str(), [&](const TreeEntry& entry) {
    if (std::string_view(entry.name) == "gone") fs::remove(folder.path("gone"));
    return 1;
  }));
}

TEST(Walk, OpensOnlyBeneath) {
  const Folder folder;
  fs::create_directories(folder.path("a/b"));
  writeText(folder.path("a/b/file"), "in");
  fs::create_symlink("b", folder.path("a/link"));
  fs::create_symlink("file", folder.path("a/b/end"));
  const Descriptor root = openFolder(folder.path().c_str());
  for (const bool steps : {false, true}) {
    const auto open = [&](const char* path, int flags) {
      return failing(steps ? ".openat2:ENOSYS" : "", [&] { return openBeneath(root.get(), path, flags, 0600); });
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
