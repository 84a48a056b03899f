#include "core/process/running_process.h"

#include <cctype>
#include <cstdlib>
#include <string_view>

#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kNameLabel = "Name:\t";
constexpr std::string_view kUidLabel = "\nUid:\t";
constexpr std::string_view kStateLabel = "\nState:\t";

/// The status of a process, as far as it is looked at.
std::string statusOf(int proc, const char* pid) {
  char text[2048];
  const Descriptor file(sys::openat(proc, joined(pid, "/status").c_str(), O_RDONLY));
  const ssize_t got = file ? sys::read(file.get(), text, sizeof text) : 0;
  return {text, got > 0 ? static_cast<std::size_t>(got) : 0};
}

bool readProcess(int proc, const char* pid, RunningProcess& process) {
  const std::string status = statusOf(proc, pid);
  const std::size_t state = status.find(kStateLabel);
  const std::size_t ids = status.find(kUidLabel);
  if (!status.starts_with(kNameLabel) || state == std::string::npos || ids == std::string::npos) return false;
  if (status.compare(state + kStateLabel.size(), 1, "Z") == 0) return false;
  process.name = status.substr(kNameLabel.size(), status.find('\n') - kNameLabel.size());
  const char* at = status.c_str() + ids + kUidLabel.size();
  for (uid_t* id : {&process.real, &process.effective, &process.saved}) {
    char* end = nullptr;
    *id = static_cast<uid_t>(std::strtoul(at, &end, 10));
    at = end;
  }
  return true;
}

}  // namespace

int eachProcess(const std::function<bool(const RunningProcess&)>& isMeant,
                const std::function<void(Descriptor&&)>& take) {
  const AsRoot root;
  FolderReader proc("/proc");
  int found = 0;
  while (const dirent* entry = proc ? proc.next() : nullptr) {
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) continue;
    RunningProcess process;
    const auto isOne = [&] { return readProcess(proc.descriptor(), entry->d_name, process) && isMeant(process); };
    if (!isOne()) continue;
    Descriptor pinned(sys::openProcess(static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10))));
    if (!pinned || !isOne()) continue;
    ++found;
    take(std::move(pinned));
  }
  return found;
}

}  // namespace zvtaskq
