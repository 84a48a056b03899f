#include "core/panel/marks.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string>

#include "core/panel/state_folder.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "marks";
constexpr std::size_t kLongestMark = 1024;

std::string readMark(const char* name) {
  const Descriptor folder = openStateFolder(kFolder);
  const AsUser panel(kPanelUser);
  const Descriptor file(folder ? sys::openat(folder.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK) : -1);
  char text[kLongestMark];
  const ssize_t length = file ? sys::read(file.get(), text, sizeof text) : 0;
  return {text, length > 0 ? static_cast<std::size_t>(length) : 0};
}

bool writeMark(const char* name, const std::string& text) {
  const Descriptor folder = openStateFolder(kFolder);
  const AsUser panel(kPanelUser);
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK;
  const Descriptor file(folder ? sys::openat(folder.get(), name, flags, 0600) : -1);
  return file && sys::writeAll(file.get(), text) == text.size();
}

}  // namespace

bool isDueAgain(const char* name, std::string_view about, long long interval) {
  const std::string mark = readMark(name);
  long long stamp = 0;
  const char* end = mark.data() + mark.size();
  const char* behind = std::from_chars(mark.data(), end, stamp).ptr;
  const StampAge age = ageOf(stamp, std::time(nullptr));
  if (age.isAhead) errorLog("%s was set in the future, at %lld, and is set anew", stateFile(name).c_str(), stamp);
  const bool sameThing = std::string_view(behind, static_cast<std::size_t>(end - behind)) == joined(" ", about, "\n");
  if (sameThing && age.seconds < interval) return false;
  setMark(name, about);
  return true;
}

void setMark(const char* name, std::string_view about) {
  if (writeMark(name, joined(std::to_string(std::time(nullptr)), " ", about, "\n"))) return;
  errorLog("Unable to write the mark %s: %s", stateFile(joined(kFolder, "/", name)).c_str(), std::strerror(errno));
}

}  // namespace zvtaskq
