#include "core/record/config_file.h"

#include <random>

#include "core/record/list_file.h"
#include "support/fixtures.h"

namespace {
/// A record of whoever runs.
struct Record : ConfigFile {
  explicit Record(const std::string& path) : ConfigFile(path.c_str()) { setUser(nullptr); }
};
}  // namespace

TEST(ConfigFile, ReadsLines) {
  Folder folder;
  for (const auto& [text, bare, want] :
       Rows<std::string, int, const char*>{{"b=1\na=2\nb=3\n", 0, "a=2;b=3;"},
                                           {"#a=b\n a=b\nx=1\n", 0, "x=1;"},
                                           {"abc\n\nx=1\n", 0, "x=1;"},
                                           {"abc\n\nx=1\n", 1, "abc=;x=1;"},
                                           {"a=1\r\nb=\r\n", 0, "a=1;b=;"},
                                           {"a=1\nb=2", 0, "a=1;"},
                                           {"=1\na=2\n", 0, "a=2;"},
                                           {"a=1\n\xc3=2\n", 0, "\xc3=2;a=1;"},
                                           {"ab=1\na=2\na\xff=3\n", 0, "a=2;a\xff=3;ab=1;"},
                                           {std::string("a=1\0x\nb=2\n", 10), 0, "a=1;b=2;"}}) {
    writeText(folder.path("record"), text);
    Record record(folder.path("record"));
    ASSERT_EQ(record.readFile(bare), 1) << record.result.orEmpty();
    EXPECT_EQ(pairsOf(record), want);
    EXPECT_FALSE(record.changed);
    if (text.size() != std::strlen(text.c_str())) continue;
    ConfigFile fromText(nullptr);
    fromText.readFromString(text.c_str(), bare);
    EXPECT_EQ(pairsOf(fromText), want);
  }
}

// Appending lazily must give what sorting after every call would give; bytes above 0x7F sort first.
TEST(ConfigFile, LazyOrderEqualsImmediateOrder) {
  std::mt19937 random(7);
  const auto before = [](const std::string& a, const std::string& b) { return strcomp(a.c_str(), b.c_str()) < 0; };
  // Some share a beginning longer than what a sort looks at first.
  const char* const stems[] = {"n", "\xc3", "name_of_many", "name_of_many\xff"};
  for (int round = 0; round < 400; ++round) {
    ConfigFile record(nullptr);
    std::map<std::string, std::string, decltype(before)> model(before);
    for (auto step = random() % 120; step > 0; --step) {
      const std::string name = stems[random() % 4] + std::to_string(random() % 12);
      const std::string value(random() % 40, static_cast<char>('a' + random() % 26));
      const auto action = random() % 12;
      if (action == 0) {
        const char* got = record.getValue(name.c_str());
        ASSERT_EQ(got == nullptr ? "" : got, model.count(name) == 0 ? "" : model[name]);
      } else if (action == 1) {
        ASSERT_EQ(record.deleteParam(name.c_str()), static_cast<int>(model.erase(name)));
      } else if (action == 2) {
        record.insertParam(name.c_str(), value.c_str());
        model[name] = value;
      } else if (action == 3) {
        ASSERT_EQ(record.size(), static_cast<long long>(model.size()));
      } else if (action == 4) {
        record.extendParam(name.c_str(), value.c_str());
        model[name] += value;
      } else if (action == 5) {
        record.fillFromPost(joined(name, "=", value, "&n9=1&n1=2&", name, "=", value));
        model["n9"] = "1";
        model["n1"] = "2";
        model[name] = value;
      } else if (action == 6) {
        ASSERT_EQ(pairsOf(ConfigFile(&record)), pairsOf(record));
        record.sort();
      } else {
        record.setParam(name.c_str(), value.c_str());
        model[name] = value;
      }
    }
    std::string want;
    for (const auto& [name, value] : model) want += name + "=" + value + ";";
    ASSERT_EQ(pairsOf(record), want);
  }
}

TEST(ConfigFile, GetsAndSetsTypedValues) {
  ConfigFile record(nullptr);
  record.setParam("n", 42);
  record.setParam("big", 1e7);
  record.setParam("small", 0.00001);
  record.setParam("half", 0.5);
  record.setParam("yes", true);
  record.setParam("x", "abc");
  record.setParam("x", static_cast<const char*>(nullptr));
  record.extendParam("x", "def");
  for (int i = 0; i < 2; ++i) record.add_count("hits");
  EXPECT_EQ(record.setParam("", "v"), 0);
  EXPECT_EQ(pairsOf(record), "big=10000000;half=0.5;hits=2;n=42;small=0.000010;x=abcdef;yes=1;");
  int number = 5;
  for (const char* none : {"absent", "x"}) EXPECT_TRUE(record.getValue(none, &number) == 0 && number == 5) << none;
  EXPECT_TRUE(record.getValue("n", &number) == 1 && number == 42);
  char room[4] = "...";
  EXPECT_TRUE(record.getValue("x", room, 2) == 1 && std::string(room, 3) == "ab.");
  record.deleteParamAt(0);
  record.shift_down_and_count();
  EXPECT_EQ(record.size(), 6);
}

TEST(ConfigFile, ParsesAndBuildsPostStrings) {
  const auto parsed = [](const char* text, int keepPlus) {
    ConfigFile record(nullptr);
    return record.fillFromPost(text, keepPlus) == 1 ? pairsOf(record) : "nothing";
  };
  EXPECT_EQ(parsed("b=+%41%2&=1&c&d=%zz&b=%2B+", 0), "b=+ ;c&d= ;");
  EXPECT_EQ(parsed("a=b+c&e=x%00y&%00f=1&g=%", 1), "a=b+c;e=x;g=%;");
  EXPECT_EQ(parsed("none", 0) + parsed("", 0) + parsed(nullptr, 0), "nothingnothing");
  ConfigFile record(nullptr), again(nullptr);
  EXPECT_EQ(record.createPostString(1).view(), "");
  record.setParam("id", "5");
  record.setParam("a b", "1\n\x01\xe9/\t");
  EXPECT_EQ(record.createPostString(1).view(), "a%20b=%31%0A\x01\xe9%2F%09&id=%35");
  EXPECT_EQ(record.createPostString(0).view(), "a b=1\n\x01\xe9/\t&id=5");
  again.fillFromPost(record.createPostString(1).view());
  EXPECT_EQ(pairsOf(again), pairsOf(record));
}

TEST(ConfigFile, WritesSafely) {
  Folder folder;
  LogCapture log;
  const std::string path = folder.path("record");
  Record record(path);
  record.headerComment = "made by a test";
  record.setParam("b", "2");
  record.setParam("a", "1");
  ASSERT_EQ(record.writeFile(), 1) << record.result.orEmpty();
  EXPECT_EQ(contentOf(path), "#made by a test\na=1\nb=2\n");
  EXPECT_EQ(modeOf(path), 0600U);
  EXPECT_FALSE(exists(path + ".lock") || exists(path + ".temp"));

  for (const char* forged : {"x\ny=1", "x\ry"}) {
    record.setParam("v", forged);
    EXPECT_EQ(record.writeFile(), 0);
    EXPECT_TRUE(holds(record.result.view(), "file didn't pass safety check<br>\n"));
  }
  EXPECT_TRUE(
      holds(log.security(), "***HACKER WARNING " + path + " has a newline or linefeed in the param value: v=x"));
  EXPECT_EQ(contentOf(path), "#made by a test\na=1\nb=2\n");
}

TEST(ConfigFile, LeavesUnchangedFilesAlone) {
  Folder folder;
  LogCapture log;
  const std::string path = folder.path("record");
  writeText(path, "a=1\n");
  Record record(path);
  ASSERT_TRUE(record.readFile());
  EXPECT_EQ(record.writeFile(), 1);
  EXPECT_EQ(record.result.view(), "No need to write " + path + " as it hasn't changed<br>\n");
  writeText(path, "a=1\nsomebody=else\n");
  record.refuseIfChangedOnDisk = true;
  EXPECT_EQ(record.writeFile(), 1);
  EXPECT_EQ(contentOf(path), "a=1\nsomebody=else\n");
  record.refuseIfChangedOnDisk = false;
  EXPECT_EQ(record.writeFile(), 1);
  EXPECT_EQ(contentOf(path), "a=1\n");
  EXPECT_TRUE(holds(log.errors(), "Timestamp from when it was read is different, overwriting anyway"));
}

TEST(ConfigFile, FailingDiskLeavesOldFileWhole) {
  for (const auto& [plan, result, logged] :
       {std::tuple("safe_write.open:EROFS", "Unable to open file for writing<br>\nRead-only file system<br>\n", ""),
        {"safe_write.write:ENOSPC", ".  Disk might be full.<br>\n", "*** errno == ENOSPC : disk is full **** ("},
        {"safe_write.write:short", ".  Disk might be full.<br>\n", "only wrote 2 of 4 bytes. Disk full??"},
        {"safe_write.fsync:EIO", ".  Disk might be full.<br>\n", "*** Error while writing "},
        {"safe_write.stat:EIO", " for filesize after write<br>\n", "unable to stat "},
        {"safe_write.close:EDQUOT", " : Disk quota exceeded<br>\n", "Unable to move "},
        {"safe_write.rename:EXDEV", " : Invalid cross-device link<br>\n", "Unable to move "}}) {
    Folder folder;
    LogCapture log;
    const std::string path = folder.path("record");
    writeText(path, "old=1\n");
    Record record(path);
    record.setParam("n", "1");
    EXPECT_EQ(failing(plan, [&] { return record.writeFile(); }), 0) << plan;
    EXPECT_TRUE(holds(record.result.view(), result)) << plan << ": " << record.result.orEmpty();
    EXPECT_TRUE(holds(log.errors(), logged)) << plan;
    EXPECT_EQ(contentOf(path), "old=1\n") << plan;
    EXPECT_FALSE(exists(path + ".lock")) << plan;
    EXPECT_EQ(record.writeFile(), 1) << plan;
  }
}

TEST(ConfigFile, NeverFollowsPlantedLinks) {
  Folder folder;
  LogCapture log;
  writeText(folder.path("canary"), "whole\n");
  const std::string path = folder.path("record");
  writeText(path, "a=1\n");
  ASSERT_EQ(::symlink(folder.path("canary").c_str(), (path + ".temp").c_str()), 0);
  Record record(path);
  record.setParam("b", "2");
  EXPECT_EQ(record.writeFile(), 1);
  EXPECT_EQ(contentOf(path), "b=2\n");
  EXPECT_EQ(contentOf(folder.path("canary")), "whole\n");

  // A line break that was read would be written as one.
  writeText(path, "a=1\rb=2\n");
  ASSERT_EQ(record.readFile(), 1);
  record.setParam("c", "3");
  EXPECT_EQ(record.writeFile(), 0);
  EXPECT_EQ(contentOf(path), "a=1\rb=2\n");

  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0666), 0);
  for (const char* name : {"fifo", ".", "/dev/zero", "absent"}) {
    const std::string what = name[0] == '/' ? name : folder.path(name);
    Record odd(what);
    odd.useLock = false;
    EXPECT_EQ(odd.readFile(), 0) << name;
    EXPECT_TRUE(holds(odd.result.view(), "Unable to open " + what + " for reading.")) << name;
  }
}

TEST(ConfigFile, WhatOthersPlantedCountsAsMissing) {
  const Folder folder;
  const LogCapture log;
  const std::string path = folder.path("record");
  writeText(path, "a=1\n");
  for (const auto& [owner, read] : {std::pair{"root", 1}, {"daemon", 1}, {"nobody", 0}}) {
    ASSERT_EQ(::chown(path.c_str(), getUID(owner), getGID(owner, 0)), 0);
    ::chmod(path.c_str(), 0666);
    ConfigFile record(path.c_str());
    record.belongsTo("daemon");
    EXPECT_EQ(record.exists(), read) << owner;
    EXPECT_EQ(record.readFile(), read) << owner << record.result.orEmpty();
    EXPECT_EQ(record.result.view().find("No such file") == std::string_view::npos, read == 1) << owner;
  }
  EXPECT_TRUE(holds(log.security(), path + " belongs to uid 65534, not to daemon: not read\n"));
}

TEST(DataFile, IsCopiedWithItsOwner) {
  ConfigFile record("/r");
  ListFile list("/l");
  for (DataFile* file : {static_cast<DataFile*>(&record), static_cast<DataFile*>(&list)}) {
    file->setUser("bob");
    file->setGroup("boss");
    file->fileMode = 0600;
  }
  const ConfigFile otherRecord(&record);
  const ListFile otherList(&list);
  for (const DataFile* copy : {static_cast<const DataFile*>(&otherRecord), static_cast<const DataFile*>(&otherList)}) {
    EXPECT_EQ(joined(copy->getUser(), " ", copy->getGroup()), "bob boss");
    EXPECT_EQ(copy->fileMode, 0600U);
    EXPECT_STREQ(copy->getFilename(), copy == &otherRecord ? "/r" : "/l");
  }
}

TEST(DataFile, AReadErrorIsNoEnd) {
  const Folder folder;
  const std::string path = folder.path("file");
  std::string lines;
  for (int i = 0; i < 100'000; ++i) lines += "name" + std::to_string(i) + "=1\n";
  writeText(path, lines);
  ConfigFile record(path.c_str());
  ListFile list(path.c_str());
  const auto refuses = [](auto& file) {
    file.setUser(nullptr);
    // The first block is there.
    EXPECT_EQ(failing(".read:EIO:1", [&] { return file.readFile(); }), 0);
    EXPECT_TRUE(holds(file.result.view(), "Input/output error"));
  };
  refuses(record);
  refuses(list);
}
