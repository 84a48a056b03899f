#include "libexec/database/credentials.h"

#include <cerrno>
#include <cstring>

#include "core/files/safe_file.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kMostBytes = 64UL * 1024;
constexpr mode_t kOthers = 077;
constexpr int kHighestPort = 65535;

/// Why the open file may not be read; empty when it may.
std::string refusal(int file) {
  struct stat what {};
  if (sys::fstat(file, what) != 0) return std::strerror(errno);
  if (!isPanels(what)) return "belongs neither to root nor to the panel's user";
  if ((what.st_mode & kOthers) != 0) return "others than its owner have permissions";
  return "";
}

}  // namespace

int readCredentials(const char* path, Credentials& credentials, std::string& error) {
  const Descriptor file = openRegularFile(path);
  error = file ? refusal(file.get()) : errno == EINVAL ? "is no regular file" : std::strerror(errno);
  std::string content;
  if (error.empty() && !sys::readAll(file.get(), content, kMostBytes)) error = std::strerror(errno);
  // A last line counts also without its end.
  ConfigFile record(nullptr);
  record.readFromString(content.append("\n").c_str());
  int port = 0;
  if (error.empty() && record.existsParam("port") &&
      (!record.getValue("port", &port) || port < 0 || port > kHighestPort)) {
    error = "the port is none";
  }
  if (error.empty() && *record.getOrEmpty("user") == '\0') error = "names no user";
  if (!error.empty()) {
    error = joined(path, ": ", error);
    return 0;
  }
  credentials = {record.getOrEmpty("user"), record.getOrEmpty("passwd"), record.getOrEmpty("host"),
                 record.getOrEmpty("socket"), static_cast<unsigned>(port)};
  return 1;
}

}  // namespace zvtaskq
