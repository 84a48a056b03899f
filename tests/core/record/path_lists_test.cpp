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
  const auto depth = static_cast<int>(times(a, "/")) - 1;
  ListFile created(nullptr);
  created.keepOrder = true;
  systemResult() = "old";
  EXPECT_EQ(createPath((a + "/b/c").c_str(), 0755, depth, &created), 1);
  EXPECT_EQ(getSysResult() + linesOf(created), a + "/b;" + a + "/b/c;");
  EXPECT_TRUE(modeOf(a + "/b") == 0755 && modeOf(a) == 0700);
  writeText(a + "/file", "");
  EXPECT_TRUE(createPath((a + "/x/y").c_str(), 01731, 0, nullptr) == 1 && modeOf(a + "/x/y") == 01731);
  for (const char* other : {"/file", "/file/z"}) EXPECT_EQ(createPath((a + other).c_str(), 0755, 0, &created), 0);
  EXPECT_TRUE(holds(getSysResult(), "/file: File exists<br>\n"));
  for (const char* none : {"", static_cast<const char*>(nullptr)}) EXPECT_EQ(createPath(none, 0755, 0, nullptr), 0);
}
