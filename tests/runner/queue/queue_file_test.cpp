#include "runner/queue/queue_file.h"

#include "core/panel/task_queue.h"
#include "support/panel_folder.h"

namespace {
using Texts = std::vector<std::string>;

void append(const std::string& path, const std::string& text) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_APPEND));
  EXPECT_EQ(sys::writeAll(file.get(), text), text.size());
}

class QueueFiles : public testing::Test {
 protected:
  QueueFiles() { panel_.makeFolder("spool"); }
  std::string queue(const std::string& name = "task.queue") const { return panel_.path("spool/" + name); }

  /// One run over a queue: the lines that it would carry out.
  static Texts run(const std::string& path) {
    Texts done;
    QueueFile file(path.c_str());
    if (file.take() != QueueFile::Taken::yes) return done;
    do {
      ListFile lines(nullptr);
      lines.keepOrder = true;
      if (!file.read(lines)) break;
      for (int i = 0; i < lines.size(); ++i) done.emplace_back(lines.getElementAt(i));
    } while (file.hasMore());
    file.finish();
    return done;
  }

  static Texts filesIn(const std::string& folder) {
    Texts paths;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
  }
  static Texts contents(const Texts& paths) {
    Texts all;
    for (const std::string& path : paths) all.push_back(contentOf(path));
    return all;
  }
  Texts retired() const { return filesIn(panel_.path("spool/.task.queue.done")); }
  Texts kept() const { return filesIn(panel_.path("admin/state/task_queue_lost")); }
  /// A run when a retired file has stood for so many seconds.
  Texts runLater(int seconds) const {
    const FixedClock clock(statOf(retired().at(0)).st_ctim.tv_sec + seconds);
    return run(queue());
  }
  long timesLogged(const std::string& text) const { return times(panel_.logs.errors(), text); }

  PanelFolder panel_;
};
}  // namespace

TEST_F(QueueFiles, AnOvertakenRunThatDiesLeavesItsLinesInSight) {
  writeText(queue(), "value=first\n");
  auto dying = std::make_unique<QueueFile>(queue().c_str());
  ASSERT_EQ(dying->take(), QueueFile::Taken::yes);
  writeText(queue(), "value=second\n");
  EXPECT_EQ(run(queue()), Texts{"value=second"});
  EXPECT_EQ(kept(), Texts{});
  dying.reset();
  EXPECT_EQ(run(queue()), Texts{});
  EXPECT_EQ(contents(kept()), Texts{"value=first\n"});
  EXPECT_EQ(timesLogged("left behind by a run that did not end"), 1);
}

TEST_F(QueueFiles, ARetiredFileStaysTenSecondsAndAsLongAsSomebodyMayWriteToIt) {
  writeText(queue(), "value=done\n");
  EXPECT_EQ(run(queue()), Texts{"value=done"});
  ASSERT_EQ(retired().size(), 1U);
  runLater(10);
  ASSERT_EQ(retired().size(), 1U);
  {
    const Descriptor writer(::open(retired().at(0).c_str(), O_WRONLY));
    runLater(11);
    ASSERT_EQ(retired().size(), 1U);
  }
  runLater(11);
  EXPECT_EQ(retired(), Texts{});
  writeText(queue(), "value=done\n");
  run(queue());
  append(retired().at(0), "value=late\n");
  EXPECT_EQ(runLater(0), Texts{"value=late"});
  EXPECT_EQ(timesLogged("kept aside"), 0);
}

TEST_F(QueueFiles, LateLinesAreQueuedAgainForTheQueuesOwner) {
  writeText(queue(), "value=done\n");
  give(queue(), 8);
  ::chmod(queue().c_str(), 0640);
  run(queue());
  append(retired().at(0), "value=late\n");
  QueueFile(queue().c_str()).take();
  EXPECT_EQ(contentOf(queue() + ".tmp"), "value=late\n");
  EXPECT_TRUE(statOf(queue() + ".tmp").st_uid == 8 && modeOf(queue() + ".tmp") == 0640);

  // What the panel itself appends is the panel's, whoever made the file.
  writeText(queue(), "");
  ASSERT_EQ(appendToQueue(queue().c_str(), "value=x\n"), 1);
  EXPECT_TRUE((Ids{statOf(queue()).st_uid, statOf(queue()).st_gid} == idsOf(kPanelUser)) && modeOf(queue()) == 0600);
}

TEST_F(QueueFiles, HalfALineInARetiredFileIsKeptAndReported) {
  writeText(queue(), "value=whole\n");
  run(queue());
  append(retired().at(0), "value=half");
  EXPECT_TRUE(run(queue()).empty() && kept().empty());
  runLater(11);
  EXPECT_EQ(contents(kept()), Texts{"value=whole\nvalue=half"});
  EXPECT_EQ(timesLogged("its last line is not finished"), 1);
  EXPECT_EQ(retired(), Texts{});
}

TEST_F(QueueFiles, AReadErrorIsNoEnd) {
  for (const char* plan : {"queue.read:EIO", "queue.read:EIO:1"}) {
    writeText(queue(), "value=a\n");
    EXPECT_EQ(failing(plan, [&] { return run(queue()); }), Texts{}) << plan;
    ASSERT_EQ(contents(kept()), Texts{"value=a\n"}) << plan;
    fs::remove(kept()[0]);
  }
  EXPECT_TRUE(timesLogged("Error reading the tmp Q file") == 2 && timesLogged(": could not be read\n") == 2);
  writeText(queue(), "value=b\n");
  run(queue());
  append(retired().at(0), "value=late\n");
  failing("retired.read:EIO", [&] { return run(queue()); });
  EXPECT_EQ(contents(kept()), Texts{"value=b\nvalue=late\n"});
}

TEST_F(QueueFiles, AHoleAndAFloodCostNoMemory) {
  const long before = peakMemory();
  writeText(queue(), "value=a\n");
  ASSERT_EQ(::truncate(queue().c_str(), 512L << 20), 0);
  EXPECT_EQ(run(queue()), Texts{});
  EXPECT_LT(peakMemory() - before, 64);
  EXPECT_EQ(timesLogged("Error reading the tmp Q file"), 1);
  EXPECT_EQ(timesLogged(": could not be read: a line of it is longer than 8388608 bytes"), 1);
  ASSERT_TRUE(kept().size() == 1 && statOf(kept()[0]).st_size == 512L << 20);
  std::string flood;
  for (int i = 0; i < 500'001; ++i) flood += "a=1\n";
  writeText(queue(), flood);
  QueueFile file(queue().c_str());
  ASSERT_EQ(file.take(), QueueFile::Taken::yes);
  ListFile first(nullptr), rest(nullptr);
  first.keepOrder = rest.keepOrder = true;
  EXPECT_TRUE(file.read(first) && first.size() == 500'000 && file.hasMore());
  EXPECT_TRUE(file.read(rest) && rest.size() == 1 && !file.hasMore());
  file.finish();
  EXPECT_EQ(kept().size(), 1U);
}

TEST_F(QueueFiles, TheNewestTwentyOfEachQueueAreKept) {
  writeText(queue("mail.queue.tmp"), "value=mail\n");
  writeText(queue("mail.queue"), "");
  run(queue("mail.queue"));
  const std::string mail = kept().at(0);
  // Kept when the clock stood far ahead, and half a copy of a run that was killed.
  const std::string folder = mail.substr(0, mail.rfind('/') + 1);
  std::string ending = queue();
  std::replace(ending.begin(), ending.end(), '/', '_');
  for (int i = 10; i < 30; ++i)
    writeText(folder + "210001" + std::to_string(i) + "-000000.000000000" + ending, "future");
  writeText(mail + ".part", "half");
  for (int i = 0; i < 25; ++i) {
    writeText(queue() + ".tmp", std::to_string(i));
    writeText(queue(), "");
    run(queue());
  }
  Texts wanted{"value=mail\n"};
  for (int i = 5; i < 25; ++i) wanted.push_back(std::to_string(i));
  EXPECT_EQ(contents(kept()), wanted);
  EXPECT_TRUE(modeOf(kept().back()) == 0600 && statOf(kept().back()).st_uid == getUID(kPanelUser));
}

TEST_F(QueueFiles, AcrossFileSystemsNothingGoesBeforeItsCopyIsSafe) {
  char name[] = "/dev/shm/zvtaskq-test-XXXXXX";
  const std::string folder = ::mkdtemp(name);
  const std::string path = folder + "/q", leftover = path + ".tmp";
  ASSERT_NE(statOf(folder).st_dev, statOf(panel_.path("admin")).st_dev);
  const std::string large(17UL << 20, 'x');
  for (const auto& [plan, hole, text, isKept] :
       Rows<const char*, long, std::string, bool>{{"", 256L << 20, "value=a\n", true},
                                                  {"keep_aside.write:ENOSPC", 0, "value=a\n", false},
                                                  {"keep_aside.fsync:EIO", 0, "value=a\n", false},
                                                  {"keep_aside.fsync:EIO:1", 0, "value=a\n", false},
                                                  {"", 0, large, false}}) {
    const std::string what = joined(plan, " ", std::to_string(hole + std::ssize(text)));
    writeText(leftover, text);
    ASSERT_TRUE(hole == 0 || ::truncate(leftover.c_str(), hole) == 0);
    writeText(path, "");
    failing(plan, [&] { return run(path); });
    EXPECT_FALSE(exists(leftover)) << what;
    Texts all = kept();
    EXPECT_EQ(all.size(), isKept ? 1U : 0U) << what;
    for (const std::string& beside : filesIn(folder)) {
      if (beside.starts_with(path + ".2")) all.push_back(beside);
    }
    ASSERT_EQ(all.size(), 1U) << what;
    EXPECT_EQ(contentOf(all[0]).substr(0, text.size()), text) << what;
    EXPECT_LT(statOf(all[0]).st_blocks * 512L, std::ssize(text) + (1L << 20)) << what;
    fs::remove(all[0]);
  }
  fs::remove_all(folder);
}

TEST_F(QueueFiles, TheFoldersOwnerCannotLeadElsewhere) {
  panel_.makeFolder("etc");
  const Texts names{panel_.path("etc/12.0"), panel_.path("etc/12.0.moving"), panel_.path("etc/passwd")};
  for (const std::string& name : names) writeText(name, "canary\n");
  const unsigned mode = modeOf(names[0]);
  const std::string spool = panel_.path("spool");
  give(spool, 8);
  fs::create_symlink(panel_.path("etc"), spool + "/link");
  fs::create_symlink(panel_.path("etc/passwd"), spool + "/file");
  {
    writeText(queue(), "value=x\n");
    run(queue());
    const Exchange folders(spool, ".task.queue.done", "link"), files(spool, "task.queue.tmp", "file");
    for (int i = 0; i < 1500; ++i) {
      writeText(queue(), "value=x\n");
      run(queue());
    }
  }
  EXPECT_EQ(filesIn(panel_.path("etc")), names);
  for (const std::string& name : names) {
    EXPECT_TRUE(contentOf(name) == "canary\n" && modeOf(name) == mode && statOf(name).st_uid == 0) << name;
  }
}
