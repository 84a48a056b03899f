#include "core/tree/folder_names.h"

#include "support/fixtures.h"

TEST(FolderNames, ManyQuestionsAreAnsweredByOneReading) {
  const Folder folder;
  writeText(folder.path("site.log"), "");
  writeText(folder.path("site.bytes"), "");
  const auto answers = [&](const std::string& path, std::string_view ending, const std::string& name) {
    FolderNames names(path, ending);
    EXPECT_TRUE(names.mayHave("none.log"));
    for (int i = 0; i < 100; ++i) static_cast<void>(names.mayHave(name));
    return names.mayHave(name);
  };
  EXPECT_TRUE(answers(folder.path(""), ".log", "site.log"));
  EXPECT_TRUE(answers(folder.path(""), "", "site.bytes"));
  EXPECT_FALSE(answers(folder.path(""), ".log", "none.log"));
  EXPECT_FALSE(answers(folder.path("nowhere"), "", "none.log"));
  EXPECT_TRUE(answers(folder.path("site.log"), "", "none.log")) << "what is no folder tells nothing";
}
