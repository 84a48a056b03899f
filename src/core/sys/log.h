// The four logs, the debug output and the program location.
//
// Every message is one line: control characters in it (a line feed in the middle included) are written as "\xNN", so
// that nothing taken from a queue line or a file name can forge a line. Logging never fails its caller and leaves
// the effective identity as it found it.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace zvtaskq {

/// Where the logs go: the few settings that the configuration hands over. The texts are the configuration's.
struct LogTargets {
  const char* errorLog = nullptr;
  const char* systemLog = nullptr;
  const char* securityLog = nullptr;
  const char* loginLog = nullptr;
  bool useSyslog = false;
};
/// Takes the targets over by copy of the pointers; null means that no configuration is loaded, and messages go to
/// standard output.
void setLogTargets(const LogTargets* targets);
/// The files at the logs' paths are others from now on, for who has just renamed them. Found out by itself, but a few
/// milliseconds later.
void reopenLogs();

/// The time-stamp object.
class Log {
 public:
  /// Makes this object the one that stamps the lines of the logs, until it is destroyed.
  Log();
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  /// Local time now as "2026:11:14-12:30:05". Owned by the object, valid until the next call.
  const char* getLogTime();
  /// Local time now as "Nov 14, 2026 at 12:30", for texts shown to people. Owned by the object.
  const char* getCurrentTime();
  /// 1 to 12 for a three-letter month name, compared without regard to case; 0 for anything else.
  static int get_month_number(const char* name);

 private:
  std::string logTime_;
  std::string currentTime_;
};

/// Faults.
[[gnu::format(printf, 1, 2)]] void errorLog(const char* format, ...);
/// Things done.
[[gnu::format(printf, 1, 2)]] void systemLog(const char* format, ...);
/// Attacks and refusals.
[[gnu::format(printf, 1, 2)]] void securityLog(const char* format, ...);
/// Log-ins.
[[gnu::format(printf, 1, 2)]] void loginLog(const char* format, ...);

/// Prints the text and a line feed on standard output when the debug level is at least `level`.
[[gnu::format(printf, 2, 3)]] void debug(int level, const char* format, ...);
/// The same message as an error-log line and as debug output.
[[gnu::format(printf, 2, 3)]] void errorLogAndDebug(int level, const char* format, ...);
/// The same message as an error-log line, a security-log line and debug output: an attack that was refused.
[[gnu::format(printf, 2, 3)]] void refusalLog(int level, const char* format, ...);
/// The debug level, 0 when debugging is off.
int isDebug();
void setDebugLevel(int level);

/// Records what the process is doing, in at most 255 characters; also written to the location tracker when one is
/// open, and shown at debug level 4000.
[[gnu::format(printf, 1, 2)]] void set_program_location(const char* format, ...);
/// What the long task at hand is about, for who asks what is being done: it stands before the location, whatever that
/// comes to say, until another or null takes its place. A copy is kept.
void setProgramTask(const char* task);
/// What `set_program_location` last recorded, behind "<task>: " while there is one; never null. Valid until the next
/// call.
const char* get_program_location();
/// The open file that receives every program location; -1 for none. Not owned.
void setLocationTracker(int fd);

/// Tells the logs that the process has changed its root directory: log files are out of reach from then on.
void set_has_chrooted();
[[nodiscard]] bool has_chrooted();

}  // namespace zvtaskq
