// What a rewrite leaves behind: the good changes together, the bad ones left out and named, nothing half.
#include "services/rewrite/rewrite.h"

#include "support/notice_recorder.h"
#include "support/panel_folder.h"

namespace {

using Texts = std::map<std::string, std::string>;

class RewriteTest : public testing::Test {
 protected:
  RewriteTest() {
    panel.makeFolder("etc");
    panel.makeFolder("zones");
    sentNotices().clear();
  }

  std::string fileOf(const std::string& account) const { return panel.path("zones/" + account); }
  std::string listed() const { return contentOf(panel.path("etc/list")); }
  std::string all(const Texts& texts) const {
    std::string text;
    for (const auto& [account, ignored] : texts) text += contentOf(fileOf(account)) + ";";
    return text;
  }
  /// Every text that holds "BAD" is bad; the server's own configuration is when `isBroken`.
  Check check() {
    return [this](const Trial& trial, std::string& words) {
      ++asked;
      std::string texts = isBroken ? "BAD server" : "";
      for (const TrialFile* file : trial.fresh) texts += contentOf(file->place);
      const std::string list = contentOf(trial.list);
      for (const TrialFile* file : trial.fresh) EXPECT_TRUE(holds(list, file->place));
      words = texts;
      return texts.find("BAD") == std::string::npos ? Verdict::good : Verdict::bad;
    };
  }

  int rewrite(const Texts& texts, bool isWhole = true, const std::function<void(Rewrite&)>& more = nullptr) {
    asked = 0;
    Rewrite rewrite({.name = "test",
                     .words = "test files",
                     .check = check(),
                     .list = {panel.path("etc/list"), kRootIds, 0644, "# head\n"},
                     .isWhole = isWhole});
    if (!rewrite.begin()) return fail(why, rewrite.result);
    for (const auto& [account, text] : texts) {
      rewrite.offer({{account, "part"}, fileOf(account), text, kRootIds, 0640, "file |PLACE|;\n"});
    }
    if (more) more(rewrite);
    const int done = rewrite.finish();
    why = rewrite.result.orEmpty();
    counts = rewrite.counts();
    return done;
  }
  bool leavesCandidates() const {
    for (const auto& entry : fs::recursive_directory_iterator(panel.path(""))) {
      if (entry.path().string().ends_with(kCandidateEnding)) return true;
    }
    return false;
  }

  PanelFolder panel;
  RewriteCounts counts;
  Text why;
  int asked = 0;
  bool isBroken = false;
};

Texts many(const char* word) {
  Texts texts;
  for (int i = 10; i < 74; ++i) texts["u" + std::to_string(i)] = word;
  return texts;
}

TEST_F(RewriteTest, LeavesOutTheBadOnesAlone) {
  Texts texts = many("one");
  ASSERT_TRUE(rewrite(texts)) << why.orEmpty();
  EXPECT_EQ(asked, 1);
  EXPECT_TRUE(rewrite(texts) && asked == 0 && counts.unchanged == 64 && counts.written == 0);
  Texts next = many("two");
  next["u20"] = "BAD a";
  next["u60"] = "BAD b";
  next["v"] = "BAD new";
  next["w"] = "new";
  ASSERT_TRUE(rewrite(next)) << why.orEmpty();
  // All at once, the rest of the configuration, and two for each halving on the way to each bad one.
  EXPECT_LE(asked, 2 + 3 * 2 * 6);
  EXPECT_EQ(counts.leftOut, 3);
  EXPECT_EQ(contentOf(fileOf("u20")) + contentOf(fileOf("u21")) + contentOf(fileOf("w")), "onetwonew");
  EXPECT_FALSE(exists(fileOf("v")));
  EXPECT_FALSE(holds(listed(), "zones/v;"));
  EXPECT_TRUE(holds(listed(), "# file " + fileOf("u20") + " of u20 part\nfile " + fileOf("u20") + ";\n"));
  ASSERT_EQ(sentNotices().size(), 1U);
  for (const char* words : {"u20 part:\nBAD a\n", "u60 part:\nBAD b\n", "v part:\nBAD new\n"}) {
    EXPECT_TRUE(holds(sentNotices().front().message, words));
  }
  // Known by now: neither asked about nor told of, until the data gives another text.
  EXPECT_TRUE(rewrite(next) && asked == 0 && sentNotices().size() == 1);
  next["u20"] = "three";
  EXPECT_TRUE(rewrite(next) && asked == 1 && contentOf(fileOf("u20")) == "three");
  EXPECT_FALSE(leavesCandidates());
}

TEST_F(RewriteTest, BlamesNobodyForTheServersOwnFaults) {
  ASSERT_TRUE(rewrite(many("one")));
  isBroken = true;
  for (int i = 0; i < 2; ++i) EXPECT_FALSE(rewrite(many("two")));
  EXPECT_TRUE(holds(why.view(), "BAD server"));
  EXPECT_EQ(sentNotices().size(), 1U);
  EXPECT_EQ(contentOf(fileOf("u10")), "one");
  EXPECT_FALSE(leavesCandidates());
  isBroken = false;
  EXPECT_TRUE(rewrite(many("two")) && counts.leftOut == 0 && contentOf(fileOf("u10")) == "two");
}

TEST_F(RewriteTest, TakesAwayWhatIsGoneAndNothingElse) {
  ASSERT_TRUE(rewrite({{"ann", "1"}, {"bob", "1"}, {"cy", "1"}, {"dan", "1"}}));
  ASSERT_TRUE(rewrite({{"ann", "2"}}, false));
  EXPECT_TRUE(holds(listed(), "zones/bob") && holds(listed(), "zones/dan"));
  const auto more = [this](Rewrite& one) {
    // What was offered before it turned out that the rest cannot be read is taken back.
    one.offer({{"bob", "part"}, fileOf("bob"), "2", kRootIds, 0640, "x\n"});
    one.keepAccount("bob");
    one.refuse({"cy", "part"}, "a\nfield", "why");
  };
  ASSERT_TRUE(rewrite({{"ann", "2"}, {"cy", "2"}}, true, more));
  EXPECT_TRUE(holds(panel.logs.errors(), "cy part: a\\x0Afield is refused: why"));
  EXPECT_EQ(contentOf(fileOf("bob")) + contentOf(fileOf("cy")), "11");
  EXPECT_TRUE(holds(listed(), "zones/bob") && holds(listed(), "zones/cy"));
  EXPECT_FALSE(exists(fileOf("dan")) || holds(listed(), "zones/dan"));
  // What somebody made of a file is put right, by its mode and owner too.
  ::chmod(fileOf("ann").c_str(), 0666);
  ASSERT_TRUE(rewrite({{"ann", "2"}}, false));
  EXPECT_EQ(modeOf(fileOf("ann")), 0640U);
}

#ifdef ZVTASKQ_FAIL_POINTS
/// Whatever step the process is killed in, or fails at: all of the change or nothing of it, and no leftovers.
TEST_F(RewriteTest, IsOldOrNewHoweverItEnds) {
  const Texts before = {{"ann", "old"}, {"bob", "old"}, {"cy", "old"}};
  const Texts after = {{"ann", "new"}, {"bob", "new"}, {"dan", "new"}};
  const std::string wasOld = "old;old;old;" + std::string(";"), isNew = "new;new;" + std::string(";new;");
  const Texts everybody = {{"ann", ""}, {"bob", ""}, {"cy", ""}, {"dan", ""}};
  int ends[2] = {0, 0};
  for (const std::string how : {"kill", "ENOSPC"}) {
    for (int step = 0, ended = 0; !ended; ++step) {
      ASSERT_TRUE(rewrite(before)) << why.orEmpty();
      const std::string plan = "rewrite.*:" + how + ":" + std::to_string(step);
      const int outcome = inAProcessOfItsOwn([&] { return failing(plan, [&] { return rewrite(after); }); });
      ended = outcome == 1 && step > 40;
      finishKilledRewrites();
      const std::string now = all(everybody);
      ASSERT_TRUE(now == wasOld || now == isNew) << plan << ": " << now;
      ++ends[now == isNew];
      EXPECT_EQ(listed().find("zones/dan") != std::string::npos, now == isNew) << plan;
      ASSERT_FALSE(leavesCandidates()) << plan;
    }
  }
  EXPECT_GT(ends[0], 10);
  EXPECT_GT(ends[1], 5);
}
#endif

}  // namespace
