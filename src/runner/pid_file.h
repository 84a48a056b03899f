// The pid file: it tells other programs who is running. It is no lock; two runs may overlap.
#pragma once

#include <string>

namespace zvtaskq {

class PidFile {
 public:
  /// "/run/zvtaskq.pid" under `systemd`, else "/var/run/zvtaskq.pid".
  explicit PidFile(bool systemd);
  /// Deletes a pid file older than 45 minutes, with an error-log line.
  void removeStale() const;
  /// Writes the process id. 0, told on standard output and in the error log, when the file cannot be made.
  [[nodiscard]] int write() const;
  void remove() const;
  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};

}  // namespace zvtaskq
