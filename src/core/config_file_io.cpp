// A record's forms outside memory: the file and the URL-encoded line.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "core/config_file.h"
#include "core/line_reader.h"
#include "core/lock_file.h"
#include "core/log.h"
#include "core/post_string.h"
#include "core/privileges.h"
#include "core/safe_file.h"

namespace zvtaskq {

namespace {

bool holdsLineBreak(std::string_view text) { return text.find_first_of("\r\n") != std::string_view::npos; }

}  // namespace

void ConfigFile::setFilename(const char* filename) {
  if (filename != nullptr) replaceFilename(filename);
}

// --- Reading ---------------------------------------------------------------------------------------------------

int ConfigFile::readFile(int keepBareLines, const char* onlyName) {
  reading_ = {keepBareLines != 0, onlyName, insertSorted, false};
  return readLines(callerLocation.isNull() ? "ConfigFile::readFile" : callerLocation.get(), startOffset);
}

int ConfigFile::readFromString(const char* text, int keepBareLines) {
  reading_ = {keepBareLines != 0, nullptr, false, insertSorted};
  std::string_view rest = text == nullptr ? std::string_view() : std::string_view(text);
  std::string_view line;
  while (nextLine(rest, line)) static_cast<void>(takeLine(line));
  sort();
  return 1;
}

bool ConfigFile::takeLine(std::string_view line) {
  if (!line.empty() && (line[0] == '#' || line[0] == ' ')) return true;
  const std::size_t at = separatorIn(line);
  if (at == std::string_view::npos) {
    if (reading_.keepBareLines) return takePair(line, "", reading_.insertsBareLines || reading_.insertsPairs);
    return true;
  }
  return takePair(line.substr(0, at), line.substr(at + 1), reading_.insertsPairs);
}

bool ConfigFile::takePair(std::string_view name, std::string_view value, bool inOrder) {
  if (reading_.onlyName != nullptr && name != reading_.onlyName) return true;
  if (inOrder) {
    insertParam(std::string(name).c_str(), std::string(value).c_str());
  } else {
    put(name, value.data(), value.size());
  }
  return reading_.onlyName == nullptr || multiValued;
}

/// Where the line's separator stands: the first one, or the first one behind a quoted name.
std::size_t ConfigFile::separatorIn(std::string_view line) const {
  std::size_t from = 0;
  if (quoteCount > 0 && !line.empty() && line[0] == quoteChar) {
    for (int seen = 1; seen < quoteCount; ++seen) {
      from = line.find(quoteChar, from + 1);
      if (from == std::string_view::npos) return from;
    }
  }
  return line.find(separator, from);
}

// --- Writing ---------------------------------------------------------------------------------------------------

int ConfigFile::writeFile(const char* path) {
  const char* target = path == nullptr ? getFilename() : path;
  if (target == nullptr) return fail(result, "Filename is null");
  long long expectedSize = 0;
  if (!skipSafetyCheck && !passesSafetyCheck(target)) return fail(result, "file didn't pass safety check");
  for (long long i = 0; i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (!pair.isEmpty()) expectedSize += static_cast<long long>(pair.nameView().size() + pair.valueView().size() + 2);
  }
  if (!headerComment.isNull()) expectedSize += static_cast<long long>(headerComment.view().size() + 2);
  return writeLines(target, callerLocation.isNull() ? "ConfigFile::writeFile" : callerLocation.get(), expectedSize);
}

/// A line break in a name or a value would let it forge another line.
int ConfigFile::passesSafetyCheck(const char* path) const {
  if (separator == '\n' || separator == '\r') {
    securityLog("***HACKER WARNING %s has a newline or linefeed separator", path);
    return 0;
  }
  if (holdsLineBreak(headerComment.view())) {
    securityLog("***HACKER WARNING %s has a newline or linefeed in this param: %s", path, headerComment.orEmpty());
    return 0;
  }
  for (long long i = 0; i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (holdsLineBreak(pair.nameView())) {
      securityLog("***HACKER WARNING %s has a newline or linefeed in this param: %s", path, pair.name);
      return 0;
    }
    if (holdsLineBreak(pair.valueView())) {
      securityLog("***HACKER WARNING %s has a newline or linefeed in the param value: %s%c%s", path, pair.name, separator,
                  pair.value);
      return 0;
    }
  }
  return 1;
}

void ConfigFile::writeContent(SafeFile& out) const {
  if (!headerComment.isNull()) {
    out.write('#');
    out.write(headerComment.view());
    out.write('\n');
  }
  for (long long i = 0; i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (pair.isEmpty()) continue;
    out.write(pair.nameView());
    out.write(separator);
    out.write(pair.valueView());
    out.write('\n');
  }
}

// --- The file itself -------------------------------------------------------------------------------------------

int ConfigFile::lock(int wantReason) {
  return lockAs(callerLocation.isNull() ? "ConfigFile::lock" : callerLocation.get(), wantReason);
}

int ConfigFile::touch() {
  const char* path = getFilename();
  if (path == nullptr) return fail(result, "Filename is null");
  const AsOwner owner(getUser(), getGroup());
  struct stat what{};
  if (sys::lstat(path, what) == 0) return 1;
  if (!createEmpty(path)) {
    debug(100, "Unable to open %s to be created", path);
    return fail(result, "Unable to open ", path, " to be created");
  }
  return 1;
}

int ConfigFile::exists() {
  const char* path = getFilename();
  if (path == nullptr) {
    errorLogAndDebug(2000, "ConfigFile::pathExists(): filename is null%s", "");
    return fail(result, "Filename is null");
  }
  const AsOwner owner(getUser(), getGroup());
  struct stat what{};
  if (::stat(path, &what) == 0) return 1;
  debug(3000, "ConfigFile::pathExists:%s: %s", path, std::strerror(errno));
  return 0;
}

// --- URL-encoded form ------------------------------------------------------------------------------------------

int ConfigFile::fillFromPost(const char* text, int keepPlus) {
  if (text != nullptr) return fillFromPost(std::string_view(text), keepPlus);
  debug(3000, "ConfigFile::fillFromPost(NULL) : ConnfigFile::filename=%s : Code last flagged at: %s",
        getFilename() == nullptr ? "" : getFilename(), get_program_location());
  return 0;
}

int ConfigFile::fillFromPost(std::string_view text, int keepPlus) {
  if (text.empty()) return 0;
  for (;;) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return 1;
    const std::size_t end = std::min(text.find('&', equals), text.size());
    Pair pair;
    if (!stored(text.substr(0, equals), text.data() + equals + 1, end - equals - 1, pair)) return refuseGrowth();
    pair.nameLength = static_cast<std::uint32_t>(fixPostString(pair.name, pair.nameLength, keepPlus));
    pair.valueLength = static_cast<std::uint32_t>(fixPostString(pair.value, pair.valueLength, keepPlus));
    if (pair.nameLength > 0 && !place(pair)) return 0;
    if (end == text.size()) return 1;
    text.remove_prefix(end + 1);
  }
}

Text ConfigFile::createPostString(int encode) const {
  std::string line;
  for (long long i = 0; i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (pair.isEmpty()) continue;
    if (!line.empty()) line += '&';
    if (encode) {
      appendEscaped(line, pair.nameView());
      line += '=';
      appendEscaped(line, pair.valueView());
    } else {
      line += pair.nameView();
      line += '=';
      line += pair.valueView();
    }
  }
  return Text::copyOf(std::string_view(line));
}

}  // namespace zvtaskq
