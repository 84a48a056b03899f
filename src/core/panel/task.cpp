#include "core/panel/task.h"

#include <strings.h>

#include <algorithm>
#include <string>

#include "core/panel/task_queue.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/text/post_string.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

/// What the names of passwords have in them, in lower case.
constexpr std::string_view kPasswordSigns[] = {"pass", "pwd"};
/// Records within records, each encoded once more.
constexpr int kMostEncodings = 4;

constexpr const char* kOffWords[] = {"", "0", "no", "off"};

bool holdsSign(std::string_view text) {
  return std::any_of(std::begin(kPasswordSigns), std::end(kPasswordSigns),
                     [&](std::string_view sign) { return text.find(sign) != std::string_view::npos; });
}

/// The text without its encodings and in lower case.
std::string plainText(std::string_view text) {
  std::string plain(text);
  for (int i = 0; i < kMostEncodings && plain.find('%') != std::string::npos; ++i) {
    // What a terminator would hide is looked at too.
    for (std::size_t at = 0; (at = plain.find("%00", at)) != std::string::npos;) plain.erase(at, 3);
    plain.resize(fixPostString(plain.data(), 1));
  }
  for (char& c : plain) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return plain;
}

/// Whether a pair names a password or holds a pair that does.
bool isSecret(std::string_view pair) {
  const std::string plain = plainText(pair);
  return holdsSign(std::string_view(plain).substr(0, plain.rfind('=') + 1));
}

}  // namespace

bool Task::isOn(const char* key) const {
  const char* value = get(key);
  return std::none_of(std::begin(kOffWords), std::end(kOffWords),
                      [&](const char* word) { return ::strcasecmp(value, word) == 0; });
}

std::string printableLine(const char* line) {
  const std::string_view text = line == nullptr ? std::string_view() : std::string_view(line);
  // Most lines have nothing to hide.
  if (!holdsSign(plainText(text))) return std::string(text);
  std::string shown;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('&', start), text.size());
    const std::string_view pair = text.substr(start, end - start);
    if (start > 0) shown += '&';
    shown += isSecret(pair) ? pair.substr(0, pair.find('=') + 1) : pair;
    start = end + 1;
  }
  return shown;
}

void hidePasswords(ConfigFile& record) {
  for (long long i = 0; i < record.size(); ++i) {
    const char* name = record.getNameAt(i);
    if (isSecret(joined(name, "=", record.getValueAt(i)))) record.setParam_in_place(i, newString(""));
  }
}

void printContents(const Task& task) {
  ConfigFile shown(&task.record);
  hidePasswords(shown);
  shown.printContents(0);
}

void selectedOf(const Task& task, ListFile& selected) {
  selected.keepOrder = true;
  for (int i = 0;; ++i) {
    const char* name = task.getOrNull(joined("select", std::to_string(i)).c_str());
    if (name == nullptr) return;
    selected.addElement(name);
  }
}

void queueTask(const char* action, const char* value, const char* type) {
  if (pushOnTaskQueue(action, value, type)) return;
  errorLog("Unable to queue action=%s&value=%s: %s", action, value, getSysResult());
}

}  // namespace zvtaskq
