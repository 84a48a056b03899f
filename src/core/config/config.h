// The panel's main configuration, zorvane.conf: one object a process, read at the start and asked ever after.
#pragma once

#include <string>

#include "core/config/settings.h"

namespace zvtaskq {

/// The settings, and what follows from them: the log files, the second queue file. Nothing writes the file back.
///
/// The logs go where the Config that was read last says, until it is read again or destroyed; while none is loaded they
/// print on standard output.
class Config : public Settings {
 public:
  /// Reads "./conf/zorvane.conf".
  Config();
  /// Reads the file; a failure is told by `error` and `result`. Null names no file and fails.
  explicit Config(const char* filename);
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;
  ~Config();

  /// The file that `readFile()` reads. Null is kept as no name.
  void setFilename(const char* filename) { filename_ = filename; }
  /// Owned by the object; null when none was given.
  const char* getFilename() const& { return filename_; }

  /// Forgets every setting and reads the file again. 1, or 0 with the reason in `result` and `error` set.
  int readFile();
  /// Reads the named file, or with `defaultsOnly` no file at all, and leaves the object's own file name alone. Takes
  /// the panel user's identity for the read and is nobody afterwards. 0 with `error` set and the result "Cannot find
  /// the zvadmin user.  Make sure the zvadmin user exists in your system." or that of the record's read; every setting
  /// then stands as in a new object. With `exitOnError` such a failure, or both of two web servers chosen, ends the
  /// process with status 1.
  int readFile(const char* filename, int exitOnError, int defaultsOnly);
  /// Fills every field from the built-in defaults, without a file. 1, or 0 as `readFile`.
  int set_defaults();

  /// The effective settings, one pair a key, put into `out`; with null printed on standard output as bare `name=value`
  /// lines sorted by name. Returns 1.
  int checkFile(ConfigFile* out) const;

  /// The three numbers of the version.
  void get_version_nums(int& major, int& minor, int& patch) const;
  /// What stands before a backup's command to lower its priority, such as "/bin/nice -n 19 ", with a space at its end.
  std::string get_backup_nice_string() const;

  /// Each keeps a copy of the text, null included, until the next read. Paths of logs take effect at once.
  void setErrLog(const char* path);
  void setSysLog(const char* path);
  void setSecLog(const char* path);
  void setLoginLogFile(const char* path);
  void setDocsRoot(const char* path) { docsroot = path; }
  void setLanguage(const char* code) { language = code; }
  void setUserLanguage(const char* code) { userLanguage = code; }
  void set_internal_lang(const char* path) { internal_lang = path; }

  /// The version of the system.
  const char* const version = "1.50.1";
  /// What the last read had to say, each message followed by "<br>\n"; null for nothing.
  Text result;
  /// The last read failed.
  bool error = false;

  /// The log files below `logdir`; null without one.
  Text errorLogFile;
  Text systemLogFile;
  Text securityLogFile;
  Text loginLogFile;
  /// The queue file worked through after `taskqueue`; null without one.
  Text secondTaskQueue;
  /// The language chosen for the account being served; null for `language`.
  Text userLanguage;

 private:
  void deleteStrings();
  int refuse(int exitOnError);
  void derive();
  void directLogs() const;
  void releaseLogs() const;

  Text filename_;
};

}  // namespace zvtaskq
