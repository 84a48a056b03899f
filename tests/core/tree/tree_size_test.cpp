#include "core/tree/tree_size.h"

#include "core/tree/safe_walk.h"
#include "support/fixtures.h"

TEST(TreeSize, LinksAndNames) {
  Folder outside, folder;
  writeText(outside.path("big"), std::string(100'000, 'x'));
  fs::create_directories(folder.path("a/b"));
  writeText(folder.path("a/one"), std::string(1000, 'x'));
  writeText(folder.path("a/line\nfeed"), "12345");
  fs::create_hard_link(folder.path("a/one"), folder.path("a/b/two"));
  fs::create_hard_link(outside.path("big"), folder.path("a/shared"));
  fs::create_symlink(outside.path(), folder.path("a/away"));
  const TreeSize size = measureTree(folder.path("a").c_str());
  EXPECT_EQ(size.bytes, 1000 + 5 + 100'000 + static_cast<long long>(outside.path().size()));
  // a, b, one, line feed, shared, away
  EXPECT_TRUE(size.inodes == 6 && !size.incomplete);
  give(folder.path("a/one"), 65534);
  EXPECT_EQ(measureTreeOf(folder.path("a").c_str(), 65534).bytes, 1000);
  EXPECT_EQ(measureTree(folder.path("a/one").c_str()).bytes, 1000);
  // What a visit passes by is not entered.
  int met = 0;
  const int whole = walkTree(folder.path().c_str(), [&](const TreeEntry&) { return ++met == 2 ? kPassBy : 1; });
  EXPECT_TRUE(whole);
  EXPECT_EQ(met, 3);
  const TreeSize none = measureTree(folder.path("none").c_str());
  EXPECT_TRUE(none.inodes == 0 && !none.incomplete);
}
