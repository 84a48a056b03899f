#include "core/template/tokenizer.h"

#include "support/panel_folder.h"

namespace {
/// A record made of "name=value" lines.
struct Tokens : ConfigFile {
  explicit Tokens(const std::string& pairs) : ConfigFile(nullptr) { readFromString(pairs.c_str()); }
};

std::string missingOf(const Tokenizer& tokenizer) {
  std::string names;
  for (int i = 0; i < tokenizer.size(); ++i) names += joined(i == 0 ? "" : ",", tokenizer.getElementAt(i));
  return names;
}

const std::string kLongName(64, 'N');
const std::string kNameOf63(63, 'N');

const Rows<const char*, std::string, std::string, const char*> kFillings{
    {"no value", "Hello |NOBODY|, |NOBODY|", "Hello |NOBODY|, |NOBODY|", "NOBODY"},
    {"empty value", "[|EMPTY|]", "[]", ""},
    {"doubled delimiter", "a||b", "a||b", ""},
    {"token behind a delimiter", "a||NAME|b", "a|Worldb", ""},
    {"closing delimiter is used up", "|NO|NAME|", "|NO|NAME|", "NO"},
    {"line feed", "|NA\nME|NAME|", "|NA\nMEWorld", ""},
    {"value with a token", "|GREETING|!", "Hello World!", ""},
    {"value with a missing token", "|ODD|", "x|NOWHERE|y", "NOWHERE"},
    {"longest name", "|" + kNameOf63 + "|", "63", ""},
    {"too long a name", "|" + kLongName + "|NAME|", "|" + kLongName + "World", ""},
    {"just far enough to be escaped", "ab\\|NAME|x|", "ab\\|NAME|x|", "x"},
    {"too near the start to be escaped", "a\\|NAME|", "a\\World", ""},
    {"two backslashes", "ab\\\\|NAME|", "ab\\World", ""},
    {"default", "|?COLOR=red|<|COLOR|>", "<red>", ""},
    {"default of what has a value", "|?NAME=red||NAME|", "World", ""},
    {"default with a token", "|?A=`NAME` and `NO`||A|", "World and `NO`", "NO"},
    {"if what was defined before", "|?NEW=1||*if NEW|yes|*endif||*if NEW=\"1\"|!|*endif|", "yes!", ""},
    {"if what is defined behind", "|*if NEW|yes|*else|no|*endif||?NEW=1|", "no", ""},
    {"if", "|*if NAME|yes |NAME||*endif|.", "yes World.", ""},
    {"absent", "|*if !NO|yes|*else|no|*endif||*if !NAME|yes|*else|no|*endif|", "yesno", ""},
    {"missing in a branch", "|*if NAME|\n|LOST|\n|*endif|", "\n|LOST|\n", "LOST"},
    {"no end", "|*if NAME|yes |NAME|", "|*if NAME|yes |NAME|", "yes "},
    {"bad condition", "a|*ifNAME|yes|*endif|b", "ab", ""},
    {"script without an end", "|$echo |NAME|", "|$echo World", ""}};

const std::string kRecord =
    "NAME=World\nEMPTY=\nGREETING=Hello |NAME|\nODD=x|NOWHERE|y\nFIVE=5\n" + kNameOf63 + "=63\n";
}  // namespace

TEST(Tokenizer, Fills) {
  const LogCapture logs;
  for (const auto& [name, text, want, missing] : kFillings) {
    Tokens tokens(kRecord);
    Tokenizer tokenizer;
    EXPECT_EQ(tokenizer.runTokenizer(text.c_str(), tokens, 0), 1) << name;
    EXPECT_EQ(tokenizer.output(), want) << name;
    EXPECT_EQ(missingOf(tokenizer), missing) << name;
  }
  Tokens tokens("ONE=1\nGREETING=Hello |NAME|\n");
  Tokenizer dump("|DUMPTOKENS|");
  EXPECT_EQ(dump.run(tokens), 1);
  EXPECT_STREQ(dump.output(), "GREETING=Hello |NAME|\nONE=1\n");
}

TEST(Tokenizer, FlagsChangeWhatIsFilled) {
  Tokens tokens("NAME=World\n");
  Tokenizer tokenizer("|?NAME=x|<|NAME|>\n\n \t\n<|LOST|>\n");
  const auto filled = [&] {
    EXPECT_EQ(tokenizer.run(tokens), 1);
    return tokenizer.output() + missingOf(tokenizer);
  };
  EXPECT_EQ(filled(), "<World>\n\n \t\n<|LOST|>\nLOST");
  tokenizer.keepTokens = tokenizer.reduceNewlines = true;
  EXPECT_EQ(filled(), "<|NAME|>\n<|LOST|>\nLOST,NAME");
  tokenizer.keepTokens = tokenizer.allowDefinitions = false;
  EXPECT_EQ(filled(), "|?NAME=x|<World>\n<|LOST|>\n?NAME=x,LOST");
  tokenizer.allowDefinitions = tokenizer.overrideDefinitions = true;
  EXPECT_EQ(filled(), "<x>\n<|LOST|>\nLOST");
  EXPECT_STREQ(tokens.getValue("NAME"), "x");
  tokenizer.delimiter = '%';
  ASSERT_EQ(tokenizer.runTokenizer("|NAME| %NAME%%*if NAME=\"x\"%!%*endif%", tokens, 0), 1);
  EXPECT_STREQ(tokenizer.output(), "|NAME| x!");
}

TEST(Tokenizer, Conditions) {
  Tokens tokens("A=1.0\nB=10\n");
  const std::string longest(256, 'x');
  std::string said;
  const auto fill = [&](const std::string& block) {
    const LogCapture logs;
    Tokenizer tokenizer;
    const Text got = tokenizer.doIfThenElse(block.c_str(), tokens, 0);
    said = logs.errors();
    return got.isNull() ? "null" : std::string(got.orEmpty());
  };
  const auto decide = [&](const std::string& condition) {
    return fill("|*if " + condition + "|<|A|>|*else|b|*endif|");
  };
  for (const char* condition :
       {"A", "\"x\"", "A=\"1.0\"", "\tA = \"1.0\" ", "A!=B", "NO=\"\"", "B>A", "A>=\"1\"", "A<=\"1.00\"", "!NO"}) {
    EXPECT_EQ(decide(condition) + said, "<1.0>") << condition;
  }
  for (const std::string& condition :
       {std::string("NO"), std::string("A=B"), std::string("B<A"), std::string("A>\"1\""), std::string("A<\"1e0\""),
        std::string("A<=\"0.5e0\""), std::string("!A"), longest}) {
    EXPECT_EQ(decide(condition) + said, "b") << condition;
  }
  EXPECT_EQ(fill("|*if B||*else|b|*endif|") + fill("|*if NO|a|*endif|"), "");
  for (const auto& [condition, logged] :
       Rows<const char*, const char*>{{"A=\"1.0", "Could not find closing \" in \"1.0"},
                                      {"\"", "Could not find closing \" in \""},
                                      {"A<\"2x\"", "2x is not a number"},
                                      {"NO<A", " is not a number"},
                                      {"A<\"inf\"", "inf is not a number"},
                                      {"A!NO", "There is no operator '!'"},
                                      {"A==A", "There is no operator '=='"}}) {
    EXPECT_EQ(decide(condition), "b") << condition;
    EXPECT_TRUE(holds(said, logged)) << condition;
  }
  for (const auto& [block, logged] :
       Rows<std::string, const char*>{{"|*if", "no space or tab after 'if'"},
                                      {"|*ifA|a|*endif|", "no space or tab after 'if'"},
                                      {"|*fi A|a|*endif|", "no space or tab after 'if'"},
                                      {"|*if A", "Could not find operator '=!<>|' from |*if A"},
                                      {"|*if A=", "Could not find the end of the operator"},
                                      {"|*if A=B", "Could not find the 2nd variable"},
                                      {"|*if A|a", "Cannot find |*endif|"},
                                      {"|*if \"" + longest + "\"|a|*endif|", "An operand is too long"}}) {
    EXPECT_EQ(fill(block), "null") << block;
    EXPECT_TRUE(holds(said, logged)) << block;
  }
  EXPECT_FALSE(Tokenizer::eval_expression(nullptr, nullptr, nullptr, tokens));
}

TEST(Tokenizer, ValuesThatNeverEndAreLeftWithALogLine) {
  // Itself; each other; twice itself; twice itself, empty in the end.
  for (const char* pairs : {"A=x|A|\n", "A=x|B|\nB=y|A|\n", "A=|A| |A|\n", "A=|B||B|\nB=|A| |A|\n"}) {
    const LogCapture logs;
    Tokens tokens(pairs);
    Tokenizer tokenizer;
    EXPECT_EQ(tokenizer.runTokenizer("|A|, |C|", tokens, 0), 0) << pairs;
    EXPECT_TRUE(holds(tokenizer.output(), ", |C|")) << pairs;
    EXPECT_TRUE(holds(logs.errors(), "Tokenizer: ")) << pairs;
    EXPECT_NE(tokenizer.result.view(), "") << pairs;
    EXPECT_EQ(tokenizer.runTokenizer("again", tokens, 0), 1);
    EXPECT_EQ(tokenizer.result.view(), "");
  }
}

TEST(Scripts, Run) {
  Tokenizer tokenizer;
  for (const auto& [name, text, want, outcome] : Rows<const char*, const char*, const char*, int>{
           {"shell", "<|$echo |NAME|\nDONE|>", "<World\n>", 1},
           {"interpreter", "|$\n#!/usr/bin/env cat\n|NAME|\nDONE|", "#!/usr/bin/env cat\nWorld\n", 1},
           {"interpreter by a bare name", "|$#!sh\necho $0 | cut -c1-5\nDONE|", "/tmp/\n", 1},
           {"as nobody, in a clean environment", "|$id -un; umask; pwd; echo $NAME $LD_PRELOAD $PATH\nDONE|",
            "nobody\n0022\n/\nWorld /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n", 1},
           {"the file", "|$stat -c '%a %U' $0\nDONE|", "700 nobody\n", 1},
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
           {"hangs", "<|$echo x; sleep 60\nDONE|>", "<>", 0}}) {
    const LogCapture logs;
    Tokens tokens("NAME=World\nEVIL=x; id\nOUTER=|EVIL|\nLD_PRELOAD=/tmp/x.so\n");
    tokens.setParam("BLOCK", "|$id\nDONE|");
    tokenizer.scriptTimeLimit = *name == 'h' ? 1 : 20;
    EXPECT_EQ(tokenizer.runTokenizer(text, tokens, 0), outcome) << name;
    EXPECT_STREQ(tokenizer.output(), want) << name;
    EXPECT_TRUE(effectiveIds() == kRootIds) << name;
    EXPECT_TRUE(outcome == 1 || !logs.errors().empty()) << name;
    EXPECT_EQ(times(logs.security(), "is not run"), std::string_view(name) == "in a value" ? 1 : 0) << name;
  }
  EXPECT_EQ(::system("ls /tmp/template_script.* 2>/dev/null"), 512);
}

TEST(Scripts, SettingsAndUsers) {
  Tokenizer tokenizer;
  PanelFolder panel;
  const std::string folder = panel.path("scripts");
  ::chmod(folder.c_str(), 01777);
  panel.conf.tokenize_script_output = true;
  panel.conf.tmpdir = folder.c_str();
  Tokens tokens("NAME=World\n");
  tokenizer.user = "daemon";
  EXPECT_EQ(tokenizer.runTokenizer("|$id -un; dirname $0; echo '-NAME-' | tr - '\\174'\nDONE|", tokens, 0), 1);
  EXPECT_EQ(tokenizer.output(), "daemon\n" + folder + "\nWorld\n");
  tokenizer.user = "nobody-of-that-name";
  EXPECT_EQ(tokenizer.runTokenizer("<|$id\nDONE|>", tokens, 0), 0);
  EXPECT_STREQ(tokenizer.output(), "<>");
  EXPECT_TRUE(holds(panel.logs.errors(), "there is no user nobody-of-that-name"));
}

TEST(TokenizerFiles, ReadsATemplateAndReplacesTheTarget) {
  const Folder folder;
  Tokens tokens("NAME=World\n");
  writeText(folder.path("template"), "Hello |NAME|\n");
  writeText(folder.path("canary"), "untouched");
  fs::create_symlink(folder.path("canary"), folder.path("target"));
  Descriptor file(::open(folder.path("template").c_str(), O_RDONLY));
  Tokenizer tokenizer(file.get(), folder.path("target").c_str());
  file.reset();
  ASSERT_TRUE(tokenizer.run(tokens) == 1 && tokenizer.save_to_file(nullptr, nullptr, 0644) == 1);
  EXPECT_TRUE(contentOf(folder.path("target")) == "Hello World\n" && modeOf(folder.path("target")) == 0644);
  EXPECT_EQ(contentOf(folder.path("canary")), "untouched");
  ASSERT_EQ(tokenizer.runTokenizer("other", tokens, 0), 1);
  for (const auto& [plan, owner, words] : Rows<const char*, const char*, const char*>{
           {"safe_write.write:ENOSPC", nullptr, "Error writing "},
           {"safe_write.rename:EIO", nullptr, "Error writing "},
           {"safe_write.open:EACCES", nullptr, "Unable to open file for writing: "},
           {"", "no-such-user", "Unable to set the owner of "}}) {
    tokenizer.result = "";
    const char* to = owner;
    EXPECT_EQ(failing(plan, [&] { return tokenizer.save_to_file(to, nullptr, 0600); }), 0) << words;
    EXPECT_TRUE(tokenizer.result.view().starts_with(words));
    EXPECT_EQ(contentOf(folder.path("target")), "Hello World\n") << words;
    EXPECT_FALSE(exists(folder.path("target.temp"))) << words;
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
  PanelFolder panel;
  panel.conf.msg_sys = "Panel";
  panel.conf.servername = "server.example";
  const auto footer = [&](const char* before = "") {
    Tokens tokens(before);
    Tokenizer::add_footer_token(tokens, &panel.conf);
    return std::string(tokens.getValue("FOOTER"));
  };
  EXPECT_EQ(footer(), "-- \nPanel, server.example\n");
  panel.makeFolder("templates/custom");
  for (const char* kind : {"", "custom/"}) {
    panel.put(joined("templates/", kind, "message_footer.txt"), joined("from ", kind));
    EXPECT_EQ(footer(), joined("from ", kind));
  }
  EXPECT_EQ(footer("FOOTER=mine\n"), "mine");
}
