#include "support/fixtures.h"

#include <sys/resource.h>

namespace zvtaskq::test {

Folder::Folder() {
  char name[] = "/tmp/zvtaskq-test-XXXXXX";
  path_ = ::mkdtemp(name);
  // Records are read as the users who own them.
  ::chmod(path_.c_str(), 0777);
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream all;
  all << file.rdbuf();
  return all.str();
}

std::string fixture(const std::string& name) {
  return contentOf(ZVTASKQ_FIXTURES "/" + name);
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
}

bool exists(const std::string& path) {
  struct stat what {};
  return ::lstat(path.c_str(), &what) == 0;
}

void writeScript(const std::string& path, const std::string& body) {
  writeText(path, "#!/bin/sh\n" + body);
  ::chmod(path.c_str(), 0755);
}

void give(const std::string& path, unsigned owner) {
  EXPECT_EQ(::lchown(path.c_str(), owner, owner), 0) << path;
}

long times(std::string_view text, std::string_view part) {
  long count = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

struct stat statOf(const std::string& path) {
  struct stat what {};
  return ::lstat(path.c_str(), &what) == 0 ? what : decltype(what){};
}

unsigned modeOf(const std::string& path) {
  return statOf(path).st_mode & 07777;
}

long peakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

Exchange::Exchange(const std::string& folder, const char* one, const char* other) {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
  child_ = ::fork();
  if (child_ == 0) {
    const int opened = ::open(folder.c_str(), O_PATH | O_DIRECTORY);
    if (!becomeForGood({8, 8}) || ::write(ends[1], "", 1) != 1) ::_exit(1);
    for (;;) ::renameat2(opened, one, opened, other, RENAME_EXCHANGE);
  }
  char started = 0;
  ::close(ends[1]);
  if (::read(ends[0], &started, 1) != 1) std::abort();
  ::close(ends[0]);
}

Exchange::~Exchange() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
}

LogCapture::LogCapture() {
  const char* names[] = {"error.log", "system.log", "security.log", "login.log"};
  for (int i = 0; i < 4; ++i) paths_[i] = folder_.path(names[i]);
  const LogTargets targets{paths_[0].c_str(), paths_[1].c_str(), paths_[2].c_str(), paths_[3].c_str(), false};
  setLogTargets(&targets);
}

LogCapture::~LogCapture() {
  setLogTargets(nullptr);
}

}  // namespace zvtaskq::test
