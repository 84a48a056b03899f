#include "core/text/text.h"

#include "core/text/line_search.h"
#include "core/text/names.h"
#include "core/text/post_string.h"
#include "support/fixtures.h"

TEST(Text, OrdersAndEdits) {
  // The empty text comes last.
  const char* const inOrder[] = {"\xff", "a", "ab", "b", "", nullptr};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(strcomp(inOrder[i], inOrder[i]), 0) << i;
    EXPECT_EQ(strcomp(inOrder[i], inOrder[i + 1]), i < 4 ? -1 : 0) << i;
    EXPECT_EQ(strcomp(inOrder[i + 1], inOrder[i]), i < 4 ? 1 : 0) << i;
  }
  Text result = Text::copyOf("");
  EXPECT_EQ(fail(result, "Unable to open ", "/x", " for reading."), 0);
  stringCat(result, "more", nullptr, std::string("!"));
  EXPECT_EQ(result.view(), "Unable to open /x for reading.<br>\nmore!");
  std::string value;
  EXPECT_TRUE(getParam("name=v", "name", value) && value == "v" && !getParam("nam", "name", value));
}

TEST(Names, AreWhatTheySay) {
  const struct {
    const char* text;
    int ipv4, ipv6, user, domain;
  } cases[] = {{"192.0.2.1", 1, 0, 0, 0},    {"192.0.2.01", 0, 0, 0, 0},  {"::1", 0, 1, 0, 0},
               {"fe80::1%eth0", 0, 0, 0, 0}, {"bob", 0, 0, 1, 0},         {"2bob", 0, 0, 0, 0},
               {"Bob", 0, 0, 0, 0},          {"../bob", 0, 0, 0, 0},      {"", 0, 0, 0, 0},
               {"a.example", 0, 0, 0, 1},    {"-a.example", 0, 0, 0, 0},  {"a..example", 0, 0, 0, 0},
               {"a.example.", 0, 0, 0, 0},   {"a_b.example", 0, 0, 0, 0}, {"bob\n", 0, 0, 0, 0},
               {"xn--a.xn--b1", 0, 0, 0, 1}, {nullptr, 0, 0, 0, 0}};
  for (const auto& c : cases) {
    const char* name = c.text == nullptr ? "(null)" : c.text;
    EXPECT_EQ(isValidIPv4(c.text), c.ipv4) << name;
    EXPECT_EQ(isValidIPv6(c.text), c.ipv6) << name;
    EXPECT_EQ(isValidUsername(c.text), c.user) << name;
    EXPECT_EQ(isValidDomain(c.text), c.domain) << name;
  }
  EXPECT_TRUE(isValidUsername("Bob", 10, 1) && isValidUsername("2bob", 10, 0, 1));
  EXPECT_FALSE(isValidUsername("elevenchars", 10) || isValidUsername("-bob", 10, 0, 1));
  EXPECT_EQ(isValidDomain((std::string(64, 'a') + ".example").c_str()), 0);
}

TEST(LineSearch, FindsWhatAPlainSearchFinds) {
  const std::vector<std::string> texts = {"Failed password", "Failed key", "no such user", "ed"};
  std::string hay;
  unsigned state = 7;
  const auto random = [&state](unsigned below) { return (state = state * 1103515245U + 12345U) / 65536U % below; };
  const std::string pieces[] = {"Failed password", "Failed", "no such user", "ed", "no such ", "\n", "x", " ",
                                "Failed ke",       "y"};
  for (int round = 0; round < 400; ++round) {
    hay.clear();
    for (unsigned i = random(30); i > 0; --i) hay += pieces[random(10)];
    // A long stretch that holds nothing, with more line feeds than a byte can count.
    if (random(4) == 0) hay.insert(random(static_cast<unsigned>(hay.size() + 1)), random(30'000), "\nx"[random(2)]);
    std::vector<std::string> sought(texts.begin() + random(2), texts.begin() + 2 + random(3));
    LineSearch search(sought);
    search.learn(hay);
    std::size_t want = hay.size();
    for (const std::string& text : sought) {
      want = std::min({want, hay.find(text), hay.size()});
      const std::size_t from = random(static_cast<unsigned>(hay.size() + 1));
      EXPECT_EQ(findText(hay, text, from), hay.find(text, from));
    }
    long long lines = 0;
    const char* found = search.find(hay.data(), hay.data() + hay.size(), lines);
    const auto at = static_cast<std::size_t>(found - hay.data());
    // The place found lies within the text that is found first, or within one that begins a little later.
    EXPECT_GE(at, want) << hay;
    EXPECT_EQ(at == hay.size(), want == hay.size()) << hay;
    EXPECT_EQ(hay.find('\n', want), hay.find('\n', at)) << hay;
    EXPECT_EQ(lines, std::count(hay.begin(), hay.begin() + static_cast<std::ptrdiff_t>(at), '\n')) << hay;
  }
}

TEST(PostString, WhatIsEscapedReadsBackWhereverItStands) {
  for (int byte = 1; byte < 256; ++byte) {
    for (const std::size_t length : {1U, 15U, 16U, 40U}) {
      std::string text(length, 'x');
      text[length * 2 / 3] = static_cast<char>(byte);
      for (const auto write : {writeEscaped, writeSparingly}) {
        std::string escaped(3 * length + kEscapeSlack, '\0');
        escaped.resize(static_cast<std::size_t>(write(escaped.data(), text) - escaped.data()));
        std::string back = escaped;
        back.resize(fixPostString(back.data(), 0));
        EXPECT_EQ(back, text) << escaped;
        EXPECT_EQ(escaped.find_first_of("&=\n"), std::string::npos) << escaped;
      }
    }
  }
}
