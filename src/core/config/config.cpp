#include "core/config/config.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/config/settings_checks.h"
#include "core/files/lock_file.h"
#include "core/record/config_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

/// Whose log files are in use. The logs hold bare pointers to its texts.
constinit const Config* logOwner = nullptr;

Text below(const Text& folder, const char* file) {
  return folder.isEmpty() ? Text() : Text::adopt(newString(folder, file));
}

}  // namespace

Config::Config() : Config("./conf/zorvane.conf") {}

Config::Config(const char* filename) : filename_(Text::copyOf(filename)) {
  readFile();
}

Config::~Config() {
  releaseLogs();
}

int Config::readFile() {
  return readFile(filename_, 0, 0);
}

int Config::set_defaults() {
  return readFile("", 0, 1);
}

int Config::readFile(const char* filename, int exitOnError, int defaultsOnly) {
  deleteStrings();
  error = false;
  if (getUID(kPanelUser) == kUnknownId) {
    addResult(result, "Cannot find the zvadmin user.  Make sure the zvadmin user exists in your system.");
    return refuse(exitOnError);
  }
  ConfigFile record(filename);
  record.setUser(kPanelUser);
  record.useLock = false;
  putRecordDefaults(record);
  if (defaultsOnly != 0) {
    putBareDefaults(record);
  } else if (record.readFile() == 0) {
    result.append(record.result.view());
    return refuse(exitOnError);
  }
  load(record);
  derive();
  setLockDebug(lock_debug);
  directLogs();
  if (checkSettings(*this, record, result) == 0 && exitOnError != 0) std::exit(1);
  return 1;
}

void Config::deleteStrings() {
  releaseLogs();
  static_cast<Settings&>(*this) = Settings();
  for (Text* text :
       {&result, &errorLogFile, &systemLogFile, &securityLogFile, &loginLogFile, &secondTaskQueue, &userLanguage}) {
    text->clear();
  }
}

int Config::refuse(int exitOnError) {
  error = true;
  if (exitOnError != 0) std::exit(1);
  return 0;
}

void Config::derive() {
  errorLogFile = below(logdir, "/error.log");
  systemLogFile = below(logdir, "/system.log");
  securityLogFile = below(logdir, "/security.log");
  loginLogFile = below(logdir, "/login.log");
  secondTaskQueue = below(taskqueue, ".zv");
  // One family: what is written for 2.0 suits them all.
  for (const std::string_view like20 : {"2.2", "2.4", "2.5"}) {
    if (apache_ver.view() == like20) apache_ver = "2.0";
  }
  if (demodocsroot.isNull()) demodocsroot = docsroot.get();
}

void Config::directLogs() const {
  releaseLogs();
  const LogTargets targets{errorLogFile, systemLogFile, securityLogFile, loginLogFile, use_syslogd};
  const bool anyFile = targets.errorLog != nullptr || targets.systemLog != nullptr || targets.securityLog != nullptr ||
                       targets.loginLog != nullptr;
  // Without any place for them, messages are better printed than lost.
  if (!anyFile && !use_syslogd) return;
  setLogTargets(&targets);
  logOwner = this;
}

void Config::releaseLogs() const {
  if (logOwner != this) return;
  setLogTargets(nullptr);
  logOwner = nullptr;
}

void Config::setErrLog(const char* path) {
  errorLogFile = path;
  directLogs();
}

void Config::setSysLog(const char* path) {
  systemLogFile = path;
  directLogs();
}

void Config::setSecLog(const char* path) {
  securityLogFile = path;
  directLogs();
}

void Config::setLoginLogFile(const char* path) {
  loginLogFile = path;
  directLogs();
}

int Config::checkFile(ConfigFile* out) const {
  ConfigFile record(nullptr);
  store(record);
  if (out == nullptr) {
    record.printContents(1);
  } else {
    out->fill(&record);
  }
  return 1;
}

void Config::get_version_nums(int& major, int& minor, int& patch) const {
  major = minor = patch = 0;
  std::sscanf(version, "%d.%d.%d", &major, &minor, &patch);
}

std::string Config::get_backup_nice_string() const {
  std::string command = joined("/bin/nice -n ", std::to_string(backup_nice), " ");
  if (!ionice_string.isEmpty()) command += joined(ionice_string, " ");
  return command;
}

}  // namespace zvtaskq
