// measure FILE CMD ARG...: runs CMD and writes to FILE its wall time in nanoseconds, its processor time in
// microseconds, its peak memory in kilobytes and its exit status, as one line.
//
// A program of its own because a child is billed the memory of whoever forked it until it starts its program: forked
// from an interpreter, nothing would ever seem to take less than the interpreter does.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace {

long long microseconds(const timeval& time) {
  return time.tv_sec * 1000000LL + time.tv_usec;
}

int exitStatus(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int fail(const char* what, int error) {
  std::fprintf(stderr, "measure: %s: %s\n", what, std::strerror(error));
  return 127;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return fail("usage: measure FILE CMD ARG...", EINVAL);
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int error = ::posix_spawnp(&child, arguments[2], nullptr, nullptr, arguments + 2, environ);
  if (error != 0) return fail(arguments[2], error);
  int status = 0;
  rusage usage{};
  if (::wait4(child, &status, 0, &usage) != child) return fail("wait4", errno);
  const auto wall = std::chrono::steady_clock::now() - start;

  std::FILE* out = std::fopen(arguments[1], "we");
  if (out == nullptr) return fail(arguments[1], errno);
  std::fprintf(out, "%lld %lld %ld %d\n",
               static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(wall).count()),
               microseconds(usage.ru_utime) + microseconds(usage.ru_stime), usage.ru_maxrss, exitStatus(status));
  return std::fclose(out) == 0 ? 0 : fail(arguments[1], errno);
}
