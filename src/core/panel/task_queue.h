// Queueing a line for a later run.
#pragma once

#include <sys/stat.h>

#include <string_view>

namespace zvtaskq {

class ConfigFile;

/// Appends one task line to the main queue file. `type` and `record` may be null; the record's pairs are copied in
/// after the three words. The line is first rewritten for the servers in use: "proftpd" becomes "pure-ftpd" under
/// `pureftp`, "httpd" becomes "nginx" or "litespeed" where those stand in its place (or goes to both under
/// `nginx_proxy`), and a restart becomes a reload where that is enough.
///
/// 1 when the line was written or deliberately dropped; 0 with the system result "That feature has been disabled for
/// the demo", "Can't get lock on task queue" or "Unable to open task queue for appending". Leaves nobody's identity.
/// A line is written whole or not at all.
[[nodiscard]] int pushOnTaskQueue(const char* action, const char* value, const char* type = nullptr,
                                  const ConfigFile* record = nullptr);

/// Appends whole lines (each with its line feed) to a queue file as they are, making it when it is not there: under its
/// lock, whole or not at all. The file then belongs to the panel, mode 0600; or with `like`, to that file's owner, with
/// its permission bits. 0 with the system result "Can't get lock on task queue" or "Unable to open task queue for
/// appending". Runs as root, and leaves that identity.
[[nodiscard]] int appendToQueue(const char* path, std::string_view lines, const struct stat* like = nullptr);

}  // namespace zvtaskq
