#include "tally/logs/rotation.h"

#include "account/model/user_folder.h"
#include "core/process/time_budget.h"
#include "core/sys/safe_point.h"
#include "core/tree/guarded_folder.h"
#include "support/panel_folder.h"
#include "tally/logs/domain_rotation.h"
#include "tally/logs/mod_security_logs.h"
#include "tally/logs/old_archives.h"
#include "tally/logs/tar_piece.h"
#include "tally/logs/web_logs.h"
#include "tally/logs/web_rotation.h"
#include "tally/logs/web_statistics.h"

namespace {
class Rotation : public ::testing::Test {
 protected:
  /// Replaces the content of the log folder: "L=a L.1=b".
  void lay(const std::string& files) {
    fs::remove_all(logs());
    fs::create_directories(logs());
    std::istringstream words(files);
    for (std::string word; words >> word;) {
      const std::size_t sign = word.find('=');
      writeText(logs() + "/" + word.substr(0, sign), word.substr(sign + 1));
    }
  }
  std::string shown() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(logs())) files[entry.path().filename()] = contentOf(entry.path());
    std::string all;
    for (const auto& [name, content] : files) all += (all.empty() ? "" : " ") + name + "=" + content;
    return all;
  }
  int rotate(const std::string& name, bool copy = false, int depth = 0) {
    return rotate_log_up((logs() + "/" + name).c_str(), &panel_.conf, depth, copy);
  }
  std::string logs() const { return panel_.path("logs"); }

  PanelFolder panel_;
};
}  // namespace

TEST_F(Rotation, Places) {
  for (const auto& [name, keep, proxy, copy, log, before, after] :
       Rows<const char*, int, int, bool, const char*, const char*, const char*>{
           {"chain, oldest goes", 5, 0, false, "L", "L=a L.1=b L.2=c L.3=d L.4=e", "L.1=a L.2=b L.3=c L.4=d"},
           {"gap ends it", 5, 0, false, "L", "L=a L.1=b L.3=d", "L.1=a L.2=b L.3=d"},
           {"one to keep", 1, 0, false, "L", "L=a L.1=b", "L.1=b"},
           {"none to keep, copied", 0, 0, true, "L", "L=a", ""},
           {"doubled by a proxy", 1, 1, false, "L", "L=a L.1=b", "L.1=a"},
           {"leading zeros", 5, 0, false, "L.007", "L.007=a", "L.8=a"},
           {"largest counted", 9, 0, false, "L.400", "L.400=a L.401=b", "L.401=a L.401.401=b"},
           {"beyond", 5, 0, false, "L.500", "L.500=a", "L.500.500=a"},
           {"no number", 5, 0, false, "L.1x", "L.1x=a L.-1=b", "L.-1=b L.1x.1=a"},
           {"copied", 5, 0, true, "L", "L=a L.1=b", "L= L.1=a L.2=b"},
           {"missing", 5, 0, false, "M", "L=a", "L=a"},
           {"in a missing folder", 5, 0, false, "no/M", "L=a", "L=a"}}) {
    panel_.conf.logs_to_keep = keep;
    panel_.conf.nginx_proxy = proxy;
    lay(before);
    EXPECT_EQ(rotate(log, copy), 1) << name;
    EXPECT_EQ(shown(), after) << name;
  }
  EXPECT_EQ(panel_.logs.errors(), "");
}

TEST_F(Rotation, Refusals) {
  EXPECT_EQ(rotate_log_up(nullptr, &panel_.conf, 0, false) + rotate_log_up("", &panel_.conf, 0, true), 0);
  lay("L.0=a");
  EXPECT_EQ(rotate("L.0"), 0);
  EXPECT_EQ(rotate("none", false, 401), 0);
  EXPECT_EQ(rotate("none", false, 400), 1);
  // A failure in the chain stops it.
  panel_.conf.logs_to_keep = 1000;
  std::string many = "M=a M.401.401=y";
  for (int i = 1; i < 403; ++i) many += " M." + std::to_string(i) + "=x";
  lay(many);
  EXPECT_EQ(rotate("M"), 0);
  EXPECT_TRUE(exists(logs() + "/M"));
  for (const std::string& wanted :
       {std::string(": logname=NULL\n"), ": couldn't figure out log number for " + logs() + "/L.0\n",
        "(" + logs() + "/none): recursive depth 401 > 400\n", "(" + logs() + "/M.401): recursive depth 401 > 400\n"}) {
    EXPECT_TRUE(holds(panel_.logs.errors(), "Tally::rotate_log_up" + wanted));
  }
}

TEST_F(Rotation, LinksAreLeftAlone) {
  const std::string canary = panel_.path("canary");
  for (const auto& [name, link, target, path] :
       Rows<std::string, const char*, std::string, const char*>{{"the log", "L", canary + "/L", "L"},
                                                                {"a hard link", "L", canary + "/L", "L"},
                                                                {"dangling", "L", "nowhere", "L"},
                                                                {"the next place", "A.1", canary + "/L", "A"},
                                                                {"the folder", "in", canary, "in/L"},
                                                                {"far above", "in", panel_.path(""), "in/canary/L"},
                                                                {"out and in again", "in", ".", "../canary/L"}}) {
    for (const bool copy : {false, true}) {
      const LogCapture said;
      lay("A=a");
      fs::remove_all(canary);
      fs::create_directory(canary);
      writeText(canary + "/L", "whole");
      name == "a hard link" ? fs::create_hard_link(target, logs() + "/" + link)
                            : fs::create_symlink(target, logs() + "/" + link);
      EXPECT_EQ(rotate(path, copy), 0) << name;
      EXPECT_EQ(contentOf(canary + "/L"), "whole") << name;
      EXPECT_EQ(std::distance(fs::directory_iterator(canary), {}), 1) << name;
      EXPECT_TRUE(holds(said.security(), "): is hard or symbolic link\n")) << name;
      EXPECT_TRUE(holds(said.errors(), "Tally::rotate_log_up(")) << name;
    }
  }
}

TEST_F(Rotation, FailuresLeaveTheLogWhole) {
  for (const auto& [plan, copies, keep, error] : Rows<const char*, bool, int, const char*>{
           {"log_rotation.rename:EIO", false, 5, "/L: renameFile error: Input/output error"},
           {"log_rotation.unlink:EROFS", false, 1, "/L: unlinkFile error: Read-only file system"},
           {"log_rotation.write:ENOSPC", true, 5, "/L.1 copy error: No space left on device"},
           {"log_rotation.fsync:EIO", true, 5, "/L.1 copy error: Input/output error"},
           {"log_rotation.ftruncate:EPERM", true, 5, "/L.1 copy error: Operation not permitted"}}) {
    const LogCapture said;
    panel_.conf.logs_to_keep = keep;
    lay("L=a");
    EXPECT_EQ(failing(plan, [this, copy = copies] { return rotate("L", copy); }), copies ? 1 : 0) << plan;
    EXPECT_EQ(shown(), "L=a") << plan;
    EXPECT_TRUE(holds(said.errors(), error)) << plan;
  }
}

TEST_F(Rotation, CopyBelongsToTheLogsOwner) {
  lay("L=a");
  const std::string log = logs() + "/L";
  // A log of holes would otherwise fill the disk.
  ASSERT_EQ(::truncate(log.c_str(), 1LL << 42), 0);
  std::ofstream(log, std::ios::app) << "end";
  give(log, 1234);
  ::chmod(log.c_str(), 0640);
  ASSERT_EQ(rotate("L", true), 1);
  const struct stat what = statOf(log + ".1");
  EXPECT_TRUE(what.st_size == (1LL << 42) + 3 && what.st_blocks < 1 << 20) << what.st_size << " " << what.st_blocks;
  EXPECT_TRUE(what.st_uid == 1234 && what.st_gid == 1234 && (what.st_mode & 07777) == 0640);
}

TEST_F(Rotation, NothingOfAnAppendingWriterIsLostWhileItCopies) {
  lay("");
  const std::string log = logs() + "/L", old(8 << 20, 'o');
  writeText(log, old + "\n");
  static int writer = -1, left = 0;
  writer = ::open(log.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  left = 80;
  setSafePointAction([] { EXPECT_TRUE(left-- <= 0 || ::write(writer, "line\n", 5) == 5); });
  EXPECT_EQ(rotate("L", true), 1);
  setSafePointAction(nullptr);
  ::close(writer);
  EXPECT_LT(left, 0);
  const std::string all = contentOf(log + ".1") + contentOf(log);
  EXPECT_TRUE(all.starts_with(old + "\nline\n") && times(all, "line\n") == 80);
}

TEST(GuardedFolder, FollowsRootsLinksAlone) {
  // Nobody but root can plant a link in /var.
  const Folder place;
  const std::string rootsOwn = "/var/guarded-folder-test";
  fs::remove_all(rootsOwn);
  fs::create_directories(rootsOwn + "/real/inner");
  fs::create_directory_symlink("real", rootsOwn + "/link");
  fs::create_directory_symlink(rootsOwn + "/link", rootsOwn + "/twice");
  fs::create_directory_symlink(rootsOwn + "/loop", rootsOwn + "/loop");
  fs::create_directory_symlink(place.path(), rootsOwn + "/out");
  fs::create_directory_symlink("/etc", place.path("back"));
  fs::create_directory_symlink("real", rootsOwn + "/given");
  ASSERT_EQ(::lchown((rootsOwn + "/given").c_str(), 1234, 0), 0);
  const struct {
    const char* path;
    int error;
  } cases[] = {{"/real", 0},           {"/link/inner", 0}, {"/twice/inner", 0}, {"/real/../link", 0},
               {"//real/./inner/", 0}, {"/out", 0},        {"/loop", ELOOP},    {"/given", ELOOP},
               {"/out/back", ELOOP},   {"/out/..", ELOOP}, {"/none", ENOENT}};
  for (const auto& c : cases) {
    const Descriptor folder = openGuardedFolder((rootsOwn + c.path).c_str());
    EXPECT_EQ(folder ? 0 : errno, c.error) << c.path;
  }
  fs::remove_all(rootsOwn);
}

TEST_F(Rotation, NoOtherNameOfAFileIsArchivedAndNoneButADomainIsAHost) {
  panel_.makeFolder("target");
  lay("");
  writeText(panel_.path("secret"), "canary");
  for (const std::string& folder : {logs(), panel_.path("target")}) give(folder, 8);
  const OpenedFolder target{Descriptor(sys::open(panel_.path("target").c_str(), O_RDONLY | O_DIRECTORY)), ""};
  const auto archive = [&] { return rotateLog(&panel_.conf, "mail", WebLog{logs(), "h", false}, ".log", target); };
  fs::create_hard_link(panel_.path("secret"), logs() + "/h.log.1");
  EXPECT_EQ(archive(), 0);
  EXPECT_TRUE(fs::is_empty(panel_.path("target")));
  EXPECT_TRUE(holds(panel_.logs.security(), "/h.log.1): is hard or symbolic link\n"));
  // Nor when it is put in the log's place meanwhile.
  {
    const Exchange exchange(logs(), "h.log.1", "hard");
    std::error_code gone;
    for (int i = 0; i < 300; ++i) {
      for (const auto& entry : fs::directory_iterator(logs())) fs::remove(entry.path(), gone);
      writeText(logs() + "/new", "theirs");
      give(logs() + "/new", 8);
      fs::rename(logs() + "/new", logs() + "/h.log.1");
      fs::create_hard_link(panel_.path("secret"), logs() + "/hard");
      static_cast<void>(archive());
    }
  }
  EXPECT_NE(std::system(("gzip -dc " + panel_.path("target") + "/* | grep -q canary").c_str()), 0);
  EXPECT_EQ(contentOf(panel_.path("secret")), "canary");

  for (const char* domain : {"../x.org", "x/y.org", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(hostOf(domain, nullptr), "");
  }
  EXPECT_EQ(hostOf("x.org", "..") + hostOf("x.org", "a/b") + hostOf("x.org", "a"), "a.x.org");
}

TEST_F(Rotation, TheProxysLogsComeFirstAndItsPassEndsWithThem) {
  Text said;
  panel_.conf.apachelogdir = panel_.path("main/domains").c_str();
  panel_.conf.nginxlogdir = panel_.path("proxy/domains").c_str();
  panel_.conf.nginx_proxy = 1;
  for (const bool proxyPass : {true, false}) {
    for (const char* server : {"main", "proxy"}) {
      fs::remove_all(panel_.path(server));
      panel_.makeFolder(joined(server, "/domains"));
      for (const char* log : {"/domains/L.log", "/modsec_audit.log"}) writeText(panel_.path(joined(server, log)), "x");
    }
    EXPECT_EQ(rotate_apache_logs(&panel_.conf, proxyPass, said), 1);
    EXPECT_TRUE(exists(panel_.path("proxy/domains/L.log.1")));
    for (const char* log : {"main/domains/L.log", "main/modsec_audit.log", "proxy/modsec_audit.log"}) {
      EXPECT_EQ(exists(panel_.path(log)), proxyPass) << log;
      EXPECT_EQ(exists(panel_.path(joined(log, ".1"))), !proxyPass) << log;
    }
  }
}

TEST_F(Rotation, WhatKeepsAStatisticsFolderFromBeingUsedIsSaid) {
  EXPECT_EQ(check_stats_path(panel_.path("missing").c_str(), "mail"), 0);
  TimeBudget time("mail", 60);
  panel_.conf.custom_stats_path = panel_.path("missing").c_str();
  panel_.conf.apachelogdir = logs().c_str();
  lay("x.org.log.1=x x.org.log=x");
  panel_.makeFolder("panel/scripts");
  panel_.conf.serverpath = panel_.path("panel").c_str();
  writeText(panel_.path("panel/scripts/awstats_process.sh"), "#!/bin/sh\n");
  EXPECT_EQ(doAwstats(&panel_.conf, "mail", "x.org", nullptr, time), 0);
  const std::string errors = panel_.logs.errors();
  EXPECT_TRUE(holds(errors, "of mail: No such file or directory\n"));
  EXPECT_TRUE(holds(errors, "/missing/x.org): No such file or directory\n"));
}

TEST(TarPiece, ReadsAsTarAndGzipDo) {
  const Folder folder;
  const std::string longest = std::string(155, 'p') + "/" + std::string(100, 'n');
  for (const auto& [name, size] : {std::pair<std::string, long long>("d/a.log", 0),
                                   {"a.log", 511},
                                   {"x/y/z", 512},
                                   {longest, 8589934591},
                                   {"big", 8589934592},
                                   {"huge", 1LL << 50}}) {
    struct stat what {};
    what.st_size = size;
    what.st_mtim.tv_sec = 1'800'000'000;
    const std::string header = tarHeader(name, what), path = folder.path("piece.gz"), shown = folder.path("shown");
    ASSERT_EQ(header.size(), 512U) << name;
    EXPECT_EQ((size + static_cast<long long>(tarPadding(size).size())) % 512, 0) << name;
    writeText(path, gzipStored(header.substr(0, 100)) + gzipStored("") + gzipStored(header.substr(100)));
    [[maybe_unused]] const int cut =
        std::system(joined("gzip -dc ", path, " | tar --utc -tvf - >", shown, " 2>/dev/null").c_str());
    EXPECT_TRUE(contentOf(shown).starts_with("-rw-r--r-- 0/0")) << contentOf(shown);
    EXPECT_TRUE(holds(contentOf(shown), joined(" ", std::to_string(size), " 2027-01-15 08:00 ", name, "\n")));
  }
  for (const std::string& name : {std::string(101, 'n'), std::string(156, 'p') + "/n", std::string("p/")}) {
    EXPECT_EQ(tarHeader(name, {}), "") << name;
  }
}

TEST_F(Rotation, ModSecurity) {
  const std::string server = panel_.path("httpd");
  fs::create_directories(server + "/domains");
  for (const char* log : {"modsec_audit.log", "modsec_debug.log", "other.log"}) writeText(server + "/" + log, log);
  panel_.conf.apachelogdir = (server + "/domains/").c_str();
  panel_.conf.modsec_audit_dir = panel_.path("audit").c_str();
  panel_.conf.logs_to_keep = 3;
  const auto day = [](int ago) {
    const time_t when = ::time(nullptr) - ago * 86400L;
    char name[16];
    std::strftime(name, sizeof name, "%Y%m%d", std::localtime(&when));
    return std::string(name);
  };
  for (const std::string& name : {day(0), day(2), day(3), day(4), std::string("bob/") + day(9),
                                  std::string("bob/deep/") + day(9), std::string("20269999")}) {
    fs::create_directories(panel_.path("audit/" + name + "/20261101-0030"));
    writeText(panel_.path("audit/" + name + "/20261101-0030/record"), "x");
  }
  fs::create_directory(panel_.path("canary"));
  writeText(panel_.path("canary/record"), "whole");
  fs::create_directory_symlink(panel_.path("canary"), panel_.path("audit/20200101"));
  fs::create_directory_symlink(panel_.path("canary"), panel_.path("audit/bob/" + day(9) + "/link"));
  fs::create_directory_symlink(panel_.path("audit/bob"), panel_.path("audit/alice"));
  rotate_mod_security_logs(&panel_.conf);
  EXPECT_TRUE(exists(server + "/modsec_audit.log.1") && exists(server + "/modsec_debug.log.1") &&
              exists(server + "/other.log"));
  for (const std::string& gone : {day(4), "bob/" + day(9)}) EXPECT_FALSE(exists(panel_.path("audit/" + gone))) << gone;
  for (const std::string& kept :
       {day(0), day(2), day(3), "bob/deep/" + day(9), std::string("20269999"), std::string("20200101")}) {
    EXPECT_TRUE(exists(panel_.path("audit/" + kept))) << kept;
  }
  EXPECT_EQ(contentOf(panel_.path("canary/record")), "whole");
  // Behind a proxy twice as many are kept.
  panel_.conf.nginx_proxy = 1;
  panel_.conf.nginxlogdir = panel_.path("nginx/domains").c_str();
  for (const int ago : {6, 7}) fs::create_directories(panel_.path("audit/" + day(ago)));
  rotate_mod_security_logs(&panel_.conf);
  EXPECT_TRUE(exists(panel_.path("audit/" + day(6))) && !exists(panel_.path("audit/" + day(7))));
  EXPECT_EQ(panel_.logs.errors(), "");
}
