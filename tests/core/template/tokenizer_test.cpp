#include "core/template/tokenizer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <numeric>
#include <sstream>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/privileges.h"
#include "support/fixtures.h"

using namespace zvtaskq;
using namespace zvtaskq::test;

namespace {

/// A record made of "name=value" lines.
void fillFrom(ConfigFile& record, const char* pairs) {
  record.readFromString(pairs);
}

std::string missingOf(const Tokenizer& tokenizer) {
  std::string names;
  for (int i = 0; i < tokenizer.size(); ++i) names += joined(i == 0 ? "" : ",", tokenizer.getElementAt(i));
  return names;
}

std::string sortedLines(const std::string& text) {
  std::istringstream from(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(from, line);) lines.push_back(line + "\n");
  std::sort(lines.begin(), lines.end());
  return std::accumulate(lines.begin(), lines.end(), std::string(text.ends_with('\n') ? "" : "unended"));
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

struct FillCase {
  const char* name;
  std::string text;
  std::string want;
  const char* missing;
};

const std::string kLongName(64, 'N');
const std::string kNameOf63(63, 'N');

const FillCase kFillings[] = {
    {"value", "Hello |NAME|", "Hello World", ""},
    {"no value", "Hello |NOBODY|, |NOBODY|", "Hello |NOBODY|, |NOBODY|", "NOBODY"},
    {"empty value", "[|EMPTY|]", "[]", ""},
    {"doubled delimiter", "a||b", "a||b", ""},
    {"token behind a delimiter", "a||NAME|b", "a|Worldb", ""},
    {"unclosed", "a|NAME", "a|NAME", ""},
    {"closing delimiter is used up", "|NO|NAME|", "|NO|NAME|", "NO"},
    {"line feed", "|NA\nME|NAME|", "|NA\nMEWorld", ""},
    {"value with a token", "|GREETING|!", "Hello World!", ""},
    {"value with a missing token", "|ODD|", "x|NOWHERE|y", "NOWHERE"},
    {"longest name", "|" + kNameOf63 + "|", "63", ""},
    {"too long a name", "|" + kLongName + "|NAME|", "|" + kLongName + "World", ""},
    {"escaped", "abc\\|NAME|x|", "abc\\|NAME|x|", "x"},
    {"just far enough to be escaped", "ab\\|NAME|x|", "ab\\|NAME|x|", "x"},
    {"too near the start to be escaped", "a\\|NAME|", "a\\World", ""},
    {"two backslashes", "ab\\\\|NAME|", "ab\\World", ""},
    {"two backslashes, no value", "ab\\\\|NO|", "ab\\|NO|", "NO"},
    {"default", "|?COLOR=red|<|COLOR|>", "<red>", ""},
    {"default of what has a value", "|?NAME=red||NAME|", "World", ""},
    {"default with a token", "|?A=`NAME` and `NO`||A|", "World and `NO`", "NO"},
    {"if what was defined before", "|?NEW=1||*if NEW|yes|*endif||*if NEW=\"1\"|!|*endif|", "yes!", ""},
    {"if what is defined behind", "|*if NEW|yes|*else|no|*endif||?NEW=1|", "no", ""},
    {"default without =", "|?COLOR|NAME|", "|?COLORWorld", ""},
    {"if", "|*if NAME|yes |NAME||*endif|.", "yes World.", ""},
    {"if not", "|*if NO|yes|*endif|.", ".", ""},
    {"else", "|*if NO|yes|*else|no |NAME||*endif|.", "no World.", ""},
    {"absent", "|*if !NO|yes|*else|no|*endif||*if !NAME|yes|*else|no|*endif|", "yesno", ""},
    {"missing in a branch", "|*if NAME|\n|LOST|\n|*endif|", "\n|LOST|\n", "LOST"},
    {"no end", "|*if NAME|yes |NAME|", "|*if NAME|yes |NAME|", "yes "},
    {"bad condition", "a|*ifNAME|yes|*endif|b", "ab", ""},
    {"dump", "|DUMPTOKENS|",
     "EMPTY=\nFIVE=5\nGREETING=Hello |NAME|\n" + kNameOf63 + "=63\nNAME=World\nODD=x|NOWHERE|y\n", ""},
    {"nothing", "", "", ""},
    {"script without an end", "|$echo |NAME|", "|$echo World", ""},
};

const std::string kRecord =
    "NAME=World\nEMPTY=\nGREETING=Hello |NAME|\nODD=x|NOWHERE|y\nFIVE=5\n" + kNameOf63 + "=63\n";

}  // namespace

TEST(Tokenizer, Fills) {
  const LogCapture logs;
  for (const FillCase& c : kFillings) {
    ConfigFile tokens(nullptr);
    fillFrom(tokens, kRecord.c_str());
    Tokenizer tokenizer;
    EXPECT_EQ(tokenizer.runTokenizer(c.text.c_str(), tokens, 0), 1) << c.name;
    if (std::string_view(c.name) == "dump") {
      // In the record's order; that is not what this is about.
      EXPECT_EQ(sortedLines(tokenizer.output()), sortedLines(c.want));
      continue;
    }
    EXPECT_EQ(tokenizer.output(), c.want) << c.name;
    EXPECT_EQ(missingOf(tokenizer), c.missing) << c.name;
  }
}

TEST(Tokenizer, FlagsChangeWhatIsFilled) {
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "NAME=World\n");
  Tokenizer tokenizer("|?NAME=x|<|NAME|>\n\n \t\n<|LOST|>\n");
  ASSERT_EQ(tokenizer.run(tokens), 1);
  EXPECT_STREQ(tokenizer.output(), "<World>\n\n \t\n<|LOST|>\n");
  tokenizer.keepTokens = true;
  tokenizer.reduceNewlines = true;
  ASSERT_EQ(tokenizer.run(tokens), 1);
  EXPECT_STREQ(tokenizer.output(), "<|NAME|>\n<|LOST|>\n");
  EXPECT_EQ(missingOf(tokenizer), "LOST,NAME");
  tokenizer.keepTokens = false;
  tokenizer.allowDefinitions = false;
  ASSERT_EQ(tokenizer.run(tokens), 1);
  EXPECT_EQ(missingOf(tokenizer), "?NAME=x,LOST");
  tokenizer.allowDefinitions = tokenizer.overrideDefinitions = true;
  ASSERT_EQ(tokenizer.run(tokens), 1);
  EXPECT_STREQ(tokenizer.output(), "<x>\n<|LOST|>\n");
  EXPECT_STREQ(tokens.getValue("NAME"), "x");
  tokenizer.delimiter = '%';
  ASSERT_EQ(tokenizer.runTokenizer("|NAME| %NAME%%*if NAME=\"x\"%!%*endif%", tokens, 0), 1);
  EXPECT_STREQ(tokenizer.output(), "|NAME| x!");
}

TEST(Tokenizer, Conditions) {
  const struct {
    const char* left;
    const char* operation;
    const char* right;
    bool want;
    const char* logged;
  } cases[] = {
      {"A", "", "", true, ""},
      {"NO", "", "", false, ""},
      {"\"x\"", "", "", true, ""},
      {"A", "=", "\"1.0\"", true, ""},
      {"A", "=", "B", false, ""},
      {"A", "!=", "B", true, ""},
      {"NO", "=", "\"\"", true, ""},
      {"A", "=", "\"1.0", false, "Could not find closing \" in \"1.0"},
      {"\"", "", "", false, "Could not find closing \" in \""},
      {"B", ">", "A", true, ""},
      {"B", "<", "A", false, ""},
      {"A", ">=", "\"1\"", true, ""},
      {"A", "<=", "\"1.00\"", true, ""},
      {"A", ">", "\"1\"", false, ""},
      {"A", "<", "\"1e0\"", false, ""},
      {"A", "<=", "\"0.5e0\"", false, ""},
      {"A", "<", "\"2x\"", false, "2x is not a number"},
      {"NO", "<", "A", false, " is not a number"},
      {"A", "<", "\"inf\"", false, "inf is not a number"},
      {"", "!", "NO", true, ""},
      {"", "!", "A", false, ""},
      {"A", "!", "NO", false, "There is no operator '!'"},
      {"A", "==", "A", false, "There is no operator '=='"},
      {nullptr, nullptr, nullptr, false, ""},
  };
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "A=1.0\nB=10\n");
  for (const auto& c : cases) {
    const LogCapture logs;
    const std::string name = joined(c.left, c.operation, c.right);
    EXPECT_EQ(Tokenizer::eval_expression(c.left, c.operation, c.right, tokens), c.want) << name;
    if (*c.logged == '\0') {
      EXPECT_EQ(logs.errors(), "") << name;
    }
    EXPECT_NE(logs.errors().find(c.logged), std::string::npos) << name << logs.errors();
  }
}

TEST(Tokenizer, ConditionalBlocks) {
  const std::string longest(256, 'x');
  const struct {
    std::string block;
    const char* want;
    const char* logged;
  } cases[] = {
      {"|*if A|a|*else|b|*endif|", "a", ""},
      {"|*if\tA = \"1\" |<|A|>|*endif|", "<1>", ""},
      {"|*if B|a|*endif|", "", ""},
      {"|*if A||*else|b|*endif|", "", ""},
      {"|*if", nullptr, "no space or tab after 'if'"},
      {"|*ifA|a|*endif|", nullptr, "no space or tab after 'if'"},
      {"|*fi A|a|*endif|", nullptr, "no space or tab after 'if'"},
      {"|*if A", nullptr, "Could not find operator '=!<>|' from |*if A"},
      {"|*if A=", nullptr, "Could not find the end of the operator"},
      {"|*if A=B", nullptr, "Could not find the 2nd variable"},
      {"|*if A|a", nullptr, "Cannot find |*endif|"},
      {"|*if \"" + longest + "\"|a|*endif|", nullptr, "An operand is too long"},
      {"|*if " + longest + "|a|*else|b|*endif|", "b", ""},
  };
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "A=1\n");
  for (const auto& c : cases) {
    const LogCapture logs;
    Tokenizer tokenizer;
    const Text got = tokenizer.doIfThenElse(c.block.c_str(), tokens, 0);
    EXPECT_EQ(got.isNull(), c.want == nullptr) << c.block;
    if (c.want != nullptr) {
      EXPECT_STREQ(got.orEmpty(), c.want) << c.block;
    }
    EXPECT_NE(logs.errors().find(c.logged), std::string::npos) << c.block << logs.errors();
  }
}

TEST(Tokenizer, ValuesThatNeverEndAreLeftWithALogLine) {
  const struct {
    const char* name;
    std::string pairs;
    int outcome;
  } cases[] = {
      {"itself", "A=x|A|\n", 0},
      {"each other", "A=x|B|\nB=y|A|\n", 0},
      {"twice itself", "A=|A| |A|\n", 0},
      {"twice itself, empty in the end", "A=|B||B|\nB=|A| |A|\n", 0},
  };
  for (const auto& c : cases) {
    const LogCapture logs;
    ConfigFile tokens(nullptr);
    fillFrom(tokens, c.pairs.c_str());
    Tokenizer tokenizer;
    EXPECT_EQ(tokenizer.runTokenizer("|A|, |C|", tokens, 0), c.outcome) << c.name;
    EXPECT_NE(std::string_view(tokenizer.output()).find(", |C|"), std::string_view::npos) << c.name;
    EXPECT_NE(logs.errors().find("Tokenizer: "), std::string::npos) << c.name;
    EXPECT_NE(tokenizer.result.view(), "") << c.name;
    EXPECT_EQ(tokenizer.runTokenizer("again", tokens, 0), 1);
    EXPECT_EQ(tokenizer.result.view(), "");
  }
}

/// What a scan that looks through the rest of the text for every opener would need minutes for.
TEST(Tokenizer, StaysLinear) {
  const int many = 200'000;
  std::string definitions;
  for (int i = many; i > 0; --i) definitions += joined("|?N", std::to_string(i), "=`X`|");
  const std::string texts[] = {
      repeated("|$x ", many) + "|",
      repeated("|*if A|", many),
      repeated("|*if A|x|*endif|", many),
      repeated("|*else|", many) + "|*endif|",
      repeated("||", many),
      repeated("|?", many) + "|",
      repeated("|?A=x|", many),
      definitions,
      repeated("|A\n", many),
      repeated("|A|", many),
      repeated("|N|*if ", many) + "|x",
      repeated("\\\\|N|", many),
      "|*if A|" + repeated("|*if ", many) + "|*endif|",
  };
  const LogCapture logs;
  const std::clock_t start = std::clock();
  for (const std::string& text : texts) {
    ConfigFile tokens(nullptr);
    fillFrom(tokens, "A=1\nX=2\n");
    Tokenizer tokenizer;
    tokenizer.reduceNewlines = true;
    static_cast<void>(tokenizer.runTokenizer(text.c_str(), tokens, 0));
    if (&text == &texts[7]) {
      EXPECT_STREQ(tokens.getValue("N1"), "2");
    }
  }
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 30);
}

// --- Scripts ---------------------------------------------------------------------------------------------------

namespace {

class Scripts : public ::testing::Test {
 protected:
  void SetUp() override {
    if (realIds().user != 0) GTEST_SKIP() << "needs root";
  }
  void TearDown() override { useConfiguration(nullptr); }

  Tokenizer tokenizer_;
};

}  // namespace

TEST_F(Scripts, Run) {
  const struct {
    const char* name;
    const char* text;
    const char* want;
    int outcome;
  } cases[] = {
      {"shell", "<|$echo |NAME|\nDONE|>", "<World\n>", 1},
      {"interpreter", "|$\n#!/usr/bin/env cat\n|NAME|\nDONE|", "#!/usr/bin/env cat\nWorld\n", 1},
      {"interpreter by a bare name", "|$#!sh\necho $0 | cut -c1-5\nDONE|", "/tmp/\n", 1},
      {"as nobody, in a clean environment", "|$id -un; umask; pwd; echo $NAME $LD_PRELOAD $PATH\nDONE|",
       "nobody\n0022\n/\nWorld /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n", 1},
      {"the file", "|$stat -c '%a %U' $0\nDONE|", "700 nobody\n", 1},
      {"nothing printed", "<|$true\nDONE|>", "<>", 1},
      {"standard error", "<|$echo x >&2; exit 3\nDONE|>", "<>", 1},
      {"empty", "<|$\nDONE|>", "<>", 1},
      {"code in a value", "<|$echo |EVIL|\nDONE|>", "<>", 0},
      {"code in a value's value", "<|$echo |OUTER|\nDONE|>", "<>", 0},
      {"code in a branch", "<|$echo |*if EVIL||EVIL||*endif|\nDONE|>", "<>", 0},
      {"code in a default", "<|$echo |?D=`EVIL`||D|\nDONE|>", "<>", 0},
      {"code in the dump", "<|$echo |DUMPTOKENS|\nDONE|>", "<>", 0},
      {"that value as environment", "|$echo \"$EVIL\"\nDONE|", "x; id\n", 1},
      {"in a value", "|BLOCK|", "|$id\nDONE|", 1},
      {"what it prints", "|$echo '-NAME-' | tr - '\\174'\nDONE|", "|NAME|\n", 1},
      {"hangs", "<|$echo x; sleep 60\nDONE|>", "<>", 0},
  };
  for (const auto& c : cases) {
    const LogCapture logs;
    ConfigFile tokens(nullptr);
    fillFrom(tokens, "NAME=World\nEVIL=x; id\nOUTER=|EVIL|\nLD_PRELOAD=/tmp/x.so\n");
    tokens.setParam("BLOCK", "|$id\nDONE|");
    tokenizer_.scriptTimeLimit = *c.name == 'h' ? 1 : 20;
    EXPECT_EQ(tokenizer_.runTokenizer(c.text, tokens, 0), c.outcome) << c.name;
    EXPECT_STREQ(tokenizer_.output(), c.want) << c.name;
    EXPECT_TRUE(effectiveIds() == kRootIds) << c.name;
    if (c.outcome == 0) {
      EXPECT_NE(logs.errors(), "") << c.name;
    }
    if (std::string_view(c.name) == "in a value") {
      EXPECT_NE(logs.security().find("is not run"), std::string::npos);
    }
  }
  EXPECT_EQ(::system("ls /tmp/template_script.* 2>/dev/null"), 512);
}

TEST_F(Scripts, SettingsAndUsers) {
  const Folder folder;
  const std::string file = folder.path("zorvane.conf");
  writeText(file, joined("tokenize_script_output=1\ntmpdir=", folder.path(), "\n"));
  ::chmod(file.c_str(), 0644);
  Config conf(file.c_str());
  if (conf.error) GTEST_SKIP() << "needs the panel's user";
  useConfiguration(&conf);
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "NAME=World\n");
  tokenizer_.user = "daemon";
  EXPECT_EQ(tokenizer_.runTokenizer("|$id -un; dirname $0; echo '-NAME-' | tr - '\\174'\nDONE|", tokens, 0), 1);
  EXPECT_EQ(tokenizer_.output(), "daemon\n" + folder.path() + "\nWorld\n");
  tokenizer_.user = "nobody-of-that-name";
  const LogCapture logs;
  EXPECT_EQ(tokenizer_.runTokenizer("<|$id\nDONE|>", tokens, 0), 0);
  EXPECT_STREQ(tokenizer_.output(), "<>");
  EXPECT_NE(logs.errors().find("there is no user nobody-of-that-name"), std::string::npos);
}

// --- Files -----------------------------------------------------------------------------------------------------

TEST(TokenizerFiles, ReadsATemplateAndReplacesTheTarget) {
  const Folder folder;
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "NAME=World\n");
  writeText(folder.path("template"), "Hello |NAME|\n");
  writeText(folder.path("canary"), "untouched");
  ASSERT_EQ(::symlink(folder.path("canary").c_str(), folder.path("target").c_str()), 0);
  const int file = ::open(folder.path("template").c_str(), O_RDONLY);
  Tokenizer tokenizer(file, folder.path("target").c_str());
  ::close(file);
  ASSERT_EQ(tokenizer.run(tokens), 1);
  ASSERT_EQ(tokenizer.save_to_file(nullptr, nullptr, 0644), 1);
  EXPECT_EQ(contentOf(folder.path("target")), "Hello World\n");
  EXPECT_EQ(modeOf(folder.path("target")), 0644U);
  EXPECT_EQ(contentOf(folder.path("canary")), "untouched");

  const struct {
    const char* plan;
    const char* owner;
    const char* words;
  } cases[] = {{"safe_write.write:ENOSPC", nullptr, "Error writing "},
               {"safe_write.rename:EIO", nullptr, "Error writing "},
               {"safe_write.open:EACCES", nullptr, "Unable to open file for writing: "},
               {"", "no-such-user", "Unable to set the owner of "}};
  ASSERT_EQ(tokenizer.runTokenizer("other", tokens, 0), 1);
  for (const auto& c : cases) {
    setFailPlan(c.plan);
    tokenizer.result = "";
    EXPECT_EQ(tokenizer.save_to_file(c.owner, nullptr, 0600), 0) << c.words;
    setFailPlan(nullptr);
    EXPECT_EQ(tokenizer.result.view().substr(0, std::strlen(c.words)), c.words);
    EXPECT_EQ(contentOf(folder.path("target")), "Hello World\n") << c.words;
    EXPECT_FALSE(exists(folder.path("target.temp"))) << c.words;
  }
}

TEST(TokenizerFiles, TellsWhatCannotBeRead) {
  const Folder folder;
  ConfigFile tokens(nullptr);
  Tokenizer tokenizer;
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0666), 0);
  for (const char* name : {"none", "fifo", "."}) {
    const std::string path = folder.path(name);
    EXPECT_EQ(tokenizer.runFromFile(path.c_str(), tokens), 0) << name;
    EXPECT_EQ(tokenizer.result.view().find(joined("Unable to open ", path, " for reading.<br>\n")), 0U) << name;
  }
  writeText(folder.path("good"), "|NAME|\n");
  EXPECT_EQ(tokenizer.runFromFile(folder.path("good").c_str(), tokens), 1);
  EXPECT_STREQ(tokenizer.output(), "|NAME|\n");
  Tokenizer unread(-1, nullptr);
  EXPECT_EQ(unread.run(tokens), 0);
  EXPECT_NE(unread.result.view(), "");
  EXPECT_EQ(unread.save_to_file(nullptr, nullptr, 0600), 0);
}

TEST(TokenizerFiles, FooterComesFromTheNearestFile) {
  const Folder folder;
  Config conf(nullptr);
  conf.templates = folder.path().c_str();
  conf.msg_sys = "Panel";
  conf.servername = "server.example";
  const auto footer = [&conf] {
    ConfigFile tokens(nullptr);
    Tokenizer::add_footer_token(tokens, &conf);
    return std::string(tokens.getValue("FOOTER"));
  };
  EXPECT_EQ(footer(), "-- \nPanel, server.example\n");
  writeText(folder.path("message_footer.txt"), "stock");
  ::chmod(folder.path("message_footer.txt").c_str(), 0644);
  EXPECT_EQ(footer(), "stock");
  ::mkdir(folder.path("custom").c_str(), 0755);
  writeText(folder.path("custom/message_footer.txt"), "custom");
  ::chmod(folder.path("custom/message_footer.txt").c_str(), 0644);
  EXPECT_EQ(footer(), "custom");
  ConfigFile tokens(nullptr);
  fillFrom(tokens, "FOOTER=mine\n");
  Tokenizer::add_footer_token(tokens, &conf);
  EXPECT_STREQ(tokens.getValue("FOOTER"), "mine");
}

TEST(TokenizerFiles, ShowsItsTextsOnDemand) {
  const Folder folder;
  writeText(folder.path("zorvane.conf"), "");
  Config conf(nullptr);
  conf.tokenizer_debug = true;
  useConfiguration(&conf);
  setDebugLevel(3500);
  const std::string shown = printed([] {
    ConfigFile tokens(nullptr);
    fillFrom(tokens, "A=1\n");
    Tokenizer tokenizer("x|A|");
    tokenizer.reduceNewlines = true;
    static_cast<void>(tokenizer.run(tokens, 2));
  });
  setDebugLevel(0);
  useConfiguration(nullptr);
  for (const char* want : {"Running tokenizer. User=nobody, depth=2\n", "token text---\nx|A|\n---end text\n",
                           "Tokens to be parsed:\n 0: A=1\n", "Tokenizer: reducing newlines - start\n",
                           "Tokenizer: reducing newlines - done: reduced=0\n"}) {
    EXPECT_NE(shown.find(want), std::string::npos) << want << shown;
  }
}
