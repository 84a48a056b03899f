// A record's forms outside memory: the file and the URL-encoded line.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

/// How many pairs ahead of the one that is written the memory is asked for the next.
constexpr long long kReadAhead = 16;
constexpr std::size_t kShortLine = 4096;

}  // namespace

void ConfigFile::setFilename(const char* filename) {
  if (filename != nullptr) replaceFilename(filename);
}

// --- Reading ---------------------------------------------------------------------------------------------------

int ConfigFile::readFile(int keepBareLines, const char* onlyName) {
  reading_ = {keepBareLines != 0, onlyName, insertSorted, false, true};
  const int read = readLines(callerLocation.isNull() ? "ConfigFile::readFile" : callerLocation.get(), startOffset);
  reading_.active = false;
  mayHoldBreak_ = mayHoldBreak_ || readMetCr();
  return read;
}

int ConfigFile::readFromString(const char* text, int keepBareLines) {
  reading_ = {keepBareLines != 0, nullptr, false, insertSorted, true};
  std::string_view rest = text == nullptr ? std::string_view() : std::string_view(text);
  std::string_view line;
  mayHoldBreak_ = mayHoldBreak_ || rest.find('\r') != std::string_view::npos;
  while (nextLine(rest, line)) static_cast<void>(takeLine(line));
  reading_.active = false;
  sort();
  return 1;
}

bool ConfigFile::takeLine(std::string_view line) {
  if (!line.empty() && (line[0] == '#' || line[0] == ' ')) return true;
  const std::size_t at = separatorIn(line);
  const bool bare = at == std::string_view::npos;
  if (bare && !reading_.keepBareLines) return true;
  const std::string_view name = line.substr(0, at);
  if (reading_.onlyName != nullptr && name != reading_.onlyName) return true;
  if (reading_.insertsPairs || (bare && reading_.insertsBareLines)) {
    insertParam(std::string(name).c_str(), bare ? "" : std::string(line.substr(at + 1)).c_str());
  } else if (bare) {
    put(name, "", 0);
  } else {
    putLine(line, at);
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
  if (!skipSafetyCheck && !passesSafetyCheck(target)) return fail(result, "file didn't pass safety check");
  long long expectedSize = 0;
  const Pair* const end = pairs_ + size();
  for (const Pair* pair = pairs_; pair != end; ++pair) {
    if (!pair->isEmpty())
      expectedSize += static_cast<long long>(pair->nameView().size() + pair->valueView().size() + 2);
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
  for (long long i = 0; mayHoldBreak_ && i < size(); ++i) {
    const Pair& pair = pairs_[i];
    if (holdsLineBreak(pair.nameView())) {
      securityLog("***HACKER WARNING %s has a newline or linefeed in this param: %s", path, pair.name);
      return 0;
    }
    if (holdsLineBreak(pair.valueView())) {
      securityLog("***HACKER WARNING %s has a newline or linefeed in the param value: %s%c%s", path, pair.name,
                  separator, pair.value);
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
  const long long count = size();
  for (long long i = 0; i < count; ++i) {
    // Neighbours by name lie far apart in memory: asked for early, they come while others are written.
    if (i + kReadAhead < count) __builtin_prefetch(pairs_[i + kReadAhead].name);
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
  struct stat what {};
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
  struct stat what {};
  // A link is looked at itself first: one that was planted may lead to a file of root's.
  if (sys::lstat(path, what) == 0 && !mayBeRead(what)) return 0;
  if (::stat(path, &what) == 0) return mayBeRead(what) ? 1 : 0;
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
  char* room = text.size() < std::numeric_limits<std::uint32_t>::max() ? pool_.take(text.size() + 1) : nullptr;
  if (room == nullptr) return refuseGrowth();
  mayHoldBreak_ = true;
  // Most lines are only asked for a name or two, for which no order is needed.
  if (count_ == 0 && ordersLazily()) unsettled_ = true;
  PostReader parts(text, room, keepPlus);
  for (;;) {
    const PostPart name = parts.takeName();
    if (name.isLast) return 1;
    const PostPart value = parts.takeValue();
    const auto pair = [&] { return pairOf(name.text, name.length, value.text, value.length); };
    if (name.length > 0 && !(unsettled_ ? appendUnsettled(pair()) : place(pair()))) return 0;
    if (value.isLast) return 1;
  }
}

/// Writes the pairs at `to`, which has room for them at their longest. Returns the end.
char* ConfigFile::writePostString(char* to, int encode) const {
  const char* const start = to;
  const auto put = [&](std::string_view part) {
    to = encode ? writeEscaped(to, part) : std::copy(part.begin(), part.end(), to);
  };
  for (const Pair* pair = pairs_; pair != pairs_ + count_; ++pair) {
    if (pair->isEmpty()) continue;
    if (to != start) *to++ = '&';
    put(pair->nameView());
    *to++ = '=';
    put(pair->valueView());
  }
  return to;
}

Text ConfigFile::createPostString(int encode) const {
  const Pair* const end = pairs_ + size();
  std::size_t room = kEscapeSlack;
  for (const Pair* pair = pairs_; pair != end; ++pair) {
    room += (pair->nameView().size() + pair->valueView().size()) * (encode ? kLongestEscape : 1) + 2;
  }
  // Nearly all lines are short: made at hand, they take from the heap just what they need.
  std::array<char, kShortLine> atHand;
  std::unique_ptr<char[]> larger(room > atHand.size() ? new char[room] : nullptr);
  char* const line = larger ? larger.get() : atHand.data();
  return Text::copyOf(std::string_view(line, static_cast<std::size_t>(writePostString(line, encode) - line)));
}

}  // namespace zvtaskq
