#include "core/sys/log.h"

#include <strings.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/sys/clock_tick.h"
#include "core/sys/identity.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::size_t kLongestMessage = 65536;

LogTargets targets;
bool loaded = false;
Log* stamp = nullptr;
int debugLevel = 0;
bool chrooted = false;
int locationTracker = -1;
std::array<char, 256> location{};
std::string programTask;

/// What to do with a message when its file cannot be opened.
enum class Fallback { whenDebugging, always, drop };

constexpr std::size_t kLogs = 4;

struct LogKind {
  std::size_t place;
  const char* LogTargets::*path;
  int syslogPriority;
  Fallback fallback;
};
constexpr LogKind kErrorLog{0, &LogTargets::errorLog, LOG_ERR, Fallback::whenDebugging};
constexpr LogKind kSystemLog{1, &LogTargets::systemLog, LOG_NOTICE, Fallback::always};
constexpr LogKind kSecurityLog{2, &LogTargets::securityLog, LOG_CRIT, Fallback::drop};
constexpr LogKind kLoginLog{3, &LogTargets::loginLog, LOG_AUTHPRIV | LOG_INFO, Fallback::whenDebugging};

/// Puts the identity back that it found, whatever happens between.
class KeepIdentity {
 public:
  KeepIdentity() : before_(effectiveIds()) {}
  ~KeepIdentity() { static_cast<void>(switchEffective(before_)); }
  KeepIdentity(const KeepIdentity&) = delete;
  KeepIdentity& operator=(const KeepIdentity&) = delete;

 private:
  Ids before_;
};

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  if (!text.empty()) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  if (text.size() > kLongestMessage) text.resize(kLongestMessage);
  return text;
}

/// One line of a message. Result texts keep their "<br>" and lose the line feed behind it; line feeds at the end of a
/// format stay; everything else that could break the line is made harmless.
std::string oneLine(std::string message) {
  constexpr std::string_view resultEnd = "<br>\n";
  for (std::size_t at = 0; (at = message.find(resultEnd, at)) != std::string::npos;) {
    message.erase(at + resultEnd.size() - 1, 1);
  }
  const std::size_t end = message.find_last_not_of('\n') + 1;
  return printable(std::string_view(message).substr(0, end)) + message.substr(end);
}

void printLine(const std::string& message) {
  std::fwrite(message.data(), 1, message.size(), stdout);
  std::fputc('\n', stdout);
}

void printWhenUnwritable(const LogKind& kind, const std::string& message) {
  if (kind.fallback == Fallback::always) printLine(message);
  if (kind.fallback == Fallback::whenDebugging && debugLevel > 9) printLine(message);
}

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// A log that stays open between two lines, since opening it costs most of what a line does. Whether it still is what
/// its path leads to is looked at once a tick of the clock; whether the descriptor still is that file, which a child
/// may have closed, or has been deleted, each time.
class KeptLog {
 public:
  /// -1 when it is to be opened anew.
  int descriptor(const char* path) {
    struct stat now {};
    if (file_ < 0 || ::fstat(file_, &now) != 0 || !isSame(now, seen_)) {
      file_ = -1;
    } else if (now.st_nlink == 0 || (tick_.hasPassed() && (::stat(path, &now) != 0 || !isSame(now, seen_)))) {
      forget();
    }
    return file_;
  }
  /// Opens it under the identity of the moment. -1 with errno.
  int open(const char* path) {
    file_ = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0640);
    if (file_ >= 0) static_cast<void>(::fstat(file_, &seen_));
    return file_;
  }
  /// It is another file from now on.
  void forget() {
    if (file_ >= 0) ::close(file_);
    file_ = -1;
  }

 private:
  int file_ = -1;
  struct stat seen_ {};
  ClockTick tick_;
};

std::array<KeptLog, kLogs> keptLogs;

void appendToFile(const LogKind& kind, const std::string& message) {
  const char* path = targets.*kind.path;
  std::string line;
  if (stamp != nullptr) line = joined(stamp->getLogTime(), ": ");
  line += message;
  line += '\n';

  KeptLog& log = keptLogs[kind.place];
  int file = path == nullptr ? -1 : log.descriptor(path);
  if (path != nullptr && file < 0) {
    const KeepIdentity keep;
    const Ids panel = idsOf(kPanelUser);
    if (panel.user != kUnknownId) static_cast<void>(switchEffective(panel));
    file = log.open(path);
  }
  if (file < 0) {
    if (path == nullptr) errno = ENOENT;
    if (!chrooted) debug(1, "Error opening %s: %s", path == nullptr ? "" : path, std::strerror(errno));
    printWhenUnwritable(kind, message);
    return;
  }
  // One write, so that lines of several processes never mix; a full disk must not fail the caller.
  static_cast<void>(!::write(file, line.data(), line.size()));
}

void writeLog(const LogKind& kind, const char* format, va_list arguments) {
  const int error = errno;
  const std::string message = oneLine(formatted(format, arguments));
  if (!loaded) {
    printLine(message);
  } else if (targets.useSyslog) {
    ::syslog(kind.syslogPriority, "%s", message.c_str());
  } else {
    appendToFile(kind, message);
  }
  errno = error;
}

void writeDebug(int level, const char* format, va_list arguments) {
  if (debugLevel == 0 || debugLevel < level) return;
  std::vfprintf(stdout, format, arguments);
  std::fputc('\n', stdout);
}

}  // namespace

void setLogTargets(const LogTargets* from) {
  reopenLogs();
  loaded = from != nullptr;
  targets = loaded ? *from : LogTargets();
}

void reopenLogs() {
  for (KeptLog& log : keptLogs) log.forget();
}

Log::Log() {
  stamp = this;
}

Log::~Log() {
  if (stamp == this) stamp = nullptr;
}

const char* Log::getLogTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.4d:%.2d:%.2d-%.2d:%.2d:%.2d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  logTime_ = text.data();
  return logTime_.c_str();
}

const char* Log::getCurrentTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s %d, %d at %.2d:%.2d", kMonths[static_cast<std::size_t>(local.tm_mon)],
                local.tm_mday, local.tm_year + 1900, local.tm_hour, local.tm_min);
  currentTime_ = text.data();
  return currentTime_.c_str();
}

int Log::get_month_number(const char* name) {
  if (name == nullptr || std::strlen(name) != 3) return 0;
  for (std::size_t i = 0; i < kMonths.size(); ++i) {
    if (::strcasecmp(name, kMonths[i]) == 0) return static_cast<int>(i) + 1;
  }
  return 0;
}

void errorLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeLog(kErrorLog, format, arguments);
  va_end(arguments);
}

void systemLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeLog(kSystemLog, format, arguments);
  va_end(arguments);
}

void securityLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeLog(kSecurityLog, format, arguments);
  va_end(arguments);
}

void loginLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeLog(kLoginLog, format, arguments);
  va_end(arguments);
}

void debug(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeDebug(level, format, arguments);
  va_end(arguments);
}

void errorLogAndDebug(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  writeLog(kErrorLog, format, arguments);
  va_end(arguments);
  va_start(arguments, format);
  writeDebug(level, format, arguments);
  va_end(arguments);
}

void refusalLog(int level, const char* format, ...) {
  va_list arguments;
  for (const LogKind* kind : {&kSecurityLog, &kErrorLog}) {
    va_start(arguments, format);
    writeLog(*kind, format, arguments);
    va_end(arguments);
  }
  va_start(arguments, format);
  writeDebug(level, format, arguments);
  va_end(arguments);
}

int isDebug() {
  return debugLevel;
}

void setDebugLevel(int level) {
  debugLevel = level;
}

void set_program_location(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(location.data(), location.size(), format, arguments);
  va_end(arguments);
  debug(4000, "Program Location: %s", location.data());
  if (locationTracker < 0) return;
  const std::string line = printable(location.data()) + "\n";
  // Told to other programs as a courtesy; whether it arrives changes nothing here.
  static_cast<void>(!::write(locationTracker, line.data(), line.size()));
}

void setProgramTask(const char* task) {
  programTask = task == nullptr ? "" : task;
}

const char* get_program_location() {
  static std::string whole;
  if (programTask.empty()) return location.data();
  whole = joined(programTask, ": ", location.data());
  return whole.c_str();
}

void setLocationTracker(int fd) {
  locationTracker = fd;
}

void set_has_chrooted() {
  chrooted = true;
}

bool has_chrooted() {
  return chrooted;
}

}  // namespace zvtaskq
