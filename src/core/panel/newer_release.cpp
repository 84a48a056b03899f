#include "core/panel/newer_release.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr const char* kHook = "newest_release.sh";
constexpr const char* kFile = "newest_release";
constexpr const char* kNote = "newer_release";
constexpr int kLongestWait = 5;
constexpr std::size_t kLongestAnswer = 256;
constexpr std::string_view kBlanks = " \t\r\n";

/// What the hook says, or the file. 0 with an error-log line when there is one and it says nothing.
int askForNewest(std::string& answer) {
  const int seconds = std::clamp(sys_conf->get_current_version_timeout, 1, kLongestWait);
  const HookAnswer hook =
      executeIfExists(hookPath(*sys_conf, kHook).c_str(), std::vector<Variable>(), seconds, kLongestAnswer);
  if (hook.failed()) {
    errorLog("%s: %s", kHook, hook.error.c_str());
    return 0;
  }
  answer = hook.result;
  if (hook.ran) return 1;
  const std::string path = adminFile(kFile);
  const AsUser panel(kPanelUser);
  const Descriptor file = openPanelFile(path.c_str());
  if ((!file && errno == ENOENT) || (file && sys::readAll(file.get(), answer, kLongestAnswer))) return 1;
  errorLog("%s: %s", path.c_str(), std::strerror(errno));
  return 0;
}

int note(const std::string& newest, bool isNewer) {
  const Descriptor folder = openStateFolder();
  PanelRecord record(stateFile(kNote));
  // A note that cannot be read is written anew.
  static_cast<void>(record.readFile());
  const char* newer = isNewer ? "yes" : "no";
  if (record.isValue("version", newest.c_str()) && record.isValue("running", sys_conf->version) &&
      record.isValue("newer", newer)) {
    return 1;
  }
  record.setParam("version", newest.c_str());
  record.setParam("running", sys_conf->version);
  record.setParam("newer", newer);
  record.setParam("since", static_cast<long long>(std::time(nullptr)));
  if (record.writeFile()) return 1;
  errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
  return 0;
}

}  // namespace

std::optional<Version> readVersion(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  Version version;
  int* const numbers[] = {&version.major, &version.minor, &version.patch};
  const char* at = text.data();
  const char* const end = at + text.size();
  for (int* number : numbers) {
    const bool mayEnd = number == numbers[2];
    if (mayEnd && at == end) return version;
    if (number != numbers[0] && (at == end || *at++ != '.')) return std::nullopt;
    const auto [behind, error] = std::from_chars(at, end, *number);
    if (error != std::errc() || *number < 0) return std::nullopt;
    at = behind;
  }
  return at == end ? std::optional(version) : std::nullopt;
}

int noteNewerRelease() {
  if (isDemo()) return 1;
  std::string answer;
  if (!askForNewest(answer)) return 0;
  if (answer.empty()) return 1;
  const std::optional<Version> newest = readVersion(answer);
  if (!newest) {
    errorLog("The newest release is no version: %.100s", answer.c_str());
    return 0;
  }
  Version running;
  sys_conf->get_version_nums(running.major, running.minor, running.patch);
  const std::string text =
      joined(std::to_string(newest->major), ".", std::to_string(newest->minor), ".", std::to_string(newest->patch));
  return note(text, *newest > running);
}

}  // namespace zvtaskq
