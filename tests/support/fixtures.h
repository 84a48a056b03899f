// What the tests stand on: throw-away folders, file contents, captured logs and output.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "support/fixed_clock.h"

namespace zvtaskq::test {

/// A folder of its own for one test, removed at its end.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string path(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string contentOf(const std::string& path);
/// What stands in a file of tests/fixtures.
std::string fixture(const std::string& name);
void writeText(const std::string& path, const std::string& text);
/// A shell script that everybody may run.
void writeScript(const std::string& path, const std::string& body);
/// Gives the file, or the link itself, to a user and the group of the same number.
void give(const std::string& path, unsigned owner);
bool exists(const std::string& path);
/// Whether `part` stands in `text`; says both when that is not what was expected.
inline testing::AssertionResult holds(std::string_view text, std::string_view part) {
  const bool found = text.find(part) != std::string_view::npos;
  return testing::AssertionResult(found) << '"' << part << (found ? "\" in:\n" : "\" is not in:\n") << text;
}
/// A table of cases: for (const auto& [name, text, want] : Rows<const char*, std::string, int>{{...}, {...}}).
template <class... Columns>
using Rows = std::vector<std::tuple<Columns...>>;
/// The pairs of a record: "name=value;" for each.
template <class Record>
std::string pairsOf(const Record& record) {
  std::string all;
  for (long long i = 0; i < record.size(); ++i) all += joined(record.getNameAt(i), "=", record.getValueAt(i), ";");
  return all;
}
/// How often `part` stands in `text`.
long times(std::string_view text, std::string_view part);
/// What there is to know of a file, or of the link itself; all of it 0 when there is none.
struct stat statOf(const std::string& path);
/// Its permission bits.
unsigned modeOf(const std::string& path);
/// The most memory that this process has had so far, in MiB.
long peakMemory();

#ifdef ZVTASKQ_FAIL_POINTS
/// What `work` answers while the system fails as planned.
template <class Work>
auto failing(const std::string& plan, Work work) {
  setFailPlan(plan.c_str());
  const struct End {
    ~End() { setFailPlan(nullptr); }
  } end;
  return work();
}
#endif

/// While it lives, the four logs go to files of a folder of its own.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::string errors() const { return contentOf(folder_.path("error.log")); }
  std::string system() const { return contentOf(folder_.path("system.log")); }
  std::string security() const { return contentOf(folder_.path("security.log")); }

 private:
  Folder folder_;
  std::string paths_[4];
};

/// From when it is made until it goes, user and group 8 exchange two names of a folder of theirs, again and again.
class Exchange {
 public:
  Exchange(const std::string& folder, const char* one, const char* other);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

 private:
  pid_t child_;
};

/// What `body` answers in a process of its own, which nothing it does outlives; -1 when that was killed.
template <class Body>
int inAProcessOfItsOwn(Body body) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(static_cast<int>(body()));
  int status = -1;
  return ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs `body` at a debug level and returns what it printed on standard output.
template <class Body>
std::string printed(Body body, int level = 0) {
  setDebugLevel(level);
  Folder folder;
  const std::string path = folder.path("out");
  std::fflush(stdout);
  const int kept = ::dup(1);
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  ::dup2(file, 1);
  body();
  std::fflush(stdout);
  ::dup2(kept, 1);
  ::close(kept);
  ::close(file);
  setDebugLevel(0);
  return contentOf(path);
}

}  // namespace zvtaskq::test

// What includes this is a test.
namespace fs = std::filesystem;
using namespace zvtaskq;
using namespace zvtaskq::test;
