#include "core/record/path_lists.h"

#include "core/files/paths.h"
#include "core/record/list_file.h"
#include "support/fixtures.h"

namespace {
std::string linesOf(const ListFile& list) {
  std::string all;
  for (int i = 0; i < list.size(); ++i) all += std::string(list.getElementAt(i)) + ";";
  return all;
}
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
  writeText(a + "/file", "");
  EXPECT_EQ(createPath((a + "/x/y").c_str(), 01731, 0, nullptr), 1);
  EXPECT_EQ(modeOf(a + "/x/y"), 01731U);
  EXPECT_EQ(createPath((a + "/file").c_str(), 0755, 0, &created), 0);
  EXPECT_EQ(createPath((a + "/file/z").c_str(), 0755, 0, &created), 0);
  EXPECT_TRUE(holds(std::string(getSysResult()), "/file: File exists<br>\n")) << getSysResult();
  for (const char* none : {"", static_cast<const char*>(nullptr)}) EXPECT_EQ(createPath(none, 0755, 0, nullptr), 0);
}

TEST(Paths, TellsWhatIsThere) {
  const Folder folder;
  const std::string file = folder.path("f"), link = folder.path("l"), tree = folder.path("t");
  writeText(file, "12345");
  fs::create_symlink(file, link);
  EXPECT_TRUE(pathExists(file.c_str()) && pathExists(folder.path().c_str(), PathKind::folder));
  EXPECT_FALSE(pathExists(folder.path().c_str(), PathKind::file) || pathExists(nullptr));
  EXPECT_EQ(fileSize(link.c_str()), 5);
  EXPECT_EQ(fileSize("/no/such"), -1);
  EXPECT_TRUE(isLink(link.c_str()) && !isLink(file.c_str()));
  EXPECT_FALSE(isHardLink(file.c_str()) || isHardLink(folder.path().c_str()));

  ASSERT_TRUE(createPath((tree + "/deep/er").c_str(), 0755, 0, nullptr));
  ASSERT_EQ(::symlink(folder.path().c_str(), (tree + "/deep/out").c_str()), 0);
  EXPECT_EQ(pathContainsHardLink(tree.c_str()), 0);
  ASSERT_EQ(::link(file.c_str(), (tree + "/deep/er/h").c_str()), 0);
  EXPECT_EQ(isHardLink((tree + "/deep/er/h").c_str()), 2);
  ListFile found(nullptr);
  EXPECT_EQ(pathContainsHardLink(tree.c_str(), &found), 1);
  EXPECT_EQ(linesOf(found), tree + "/deep/er/h;");
  EXPECT_EQ(unlinkFile(link.c_str()), 1);
  EXPECT_EQ(contentOf(file), "12345");
  EXPECT_EQ(unlinkFile(link.c_str()), 0);
}
