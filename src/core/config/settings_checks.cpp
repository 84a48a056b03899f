#include "core/config/settings_checks.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "core/record/config_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr const char* kPigz = "/usr/local/bin/pigz";
// The most minutes whose milliseconds still fit into 32 bits.
constexpr int kMostSessionMinutes = 35791;

bool exists(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0;
}

void warnOfOldNames(const ConfigFile& record) {
  const char* value = record.getValue("connect_timeout");
  if (value == nullptr) return;
  errorLogAndDebug(1000,
                   "DEPRECATED: connect_timeout=%s has been replaced with request_timeout. Please change your "
                   "zorvane.conf. https://help.zorvane.example/zorvane.conf/request_timeout",
                   value);
}

void lowerToTimeout(Settings& settings) {
  if (settings.handshake_timeout > settings.timeout) {
    debug(100, "handshake_timeout(%d) is larger than timeout(%d). Lowering handshake_timeout to match timeout.",
          settings.handshake_timeout, settings.timeout);
    settings.handshake_timeout = settings.timeout;
  }
  if (settings.request_timeout > settings.timeout) {
    debug(100, "request_timeout(%d) is larger than timeout(%d). Lowering request_timeout to match timeout.",
          settings.request_timeout, settings.timeout);
    settings.request_timeout = settings.timeout;
  }
}

void keepInRange(Settings& settings) {
  if (settings.session_minutes < 1 || settings.session_minutes > kMostSessionMinutes) {
    constexpr int kInstead = 60;
    std::printf("You're trying to use a session_minutes value of %d.  Ignoring you and using %d instead.\n",
                settings.session_minutes, kInstead);
    settings.session_minutes = kInstead;
  }
  if (settings.max_username_length < 8 || settings.max_username_length > 14) {
    constexpr int kInstead = 10;
    std::printf(
        "You're trying to use a max_username_length value of %d.  Ignoring you and using %d instead (valid: 8-14)\n",
        settings.max_username_length, kInstead);
    settings.max_username_length = kInstead;
  }
}

void checkPigz(Settings& settings) {
  if (settings.pigz > 0 && !exists(kPigz)) {
    debug(1000, "Cannot find %s.  Disabling pigz support. (uid=%d)", kPigz, static_cast<int>(::geteuid()));
    settings.pigz = 0;
  }
  if (!settings.backup_gzip && settings.pigz >= 1) {
    debug(1000, "backup_gzip is disabled, but pigz is enabled.  Disabling pigz support.");
    settings.pigz = 0;
  }
}

void checkCryptMethod(Settings& settings) {
  if (settings.crypt_method <= 6) return;
  std::printf("Please use a crypt_method of 1,5 or 6\nValue '%d' is not allowed.\n", settings.crypt_method);
  settings.crypt_method = 1;
}

void checkQuotaPartitions(Settings& settings, Text& result) {
  const Text& further = settings.ext_quota_partitions;
  if (further.isEmpty() || further.view() != settings.quota_partition.view()) return;
  std::array<char, 4096> message{};
  std::snprintf(message.data(), message.size(),
                "Your ext_quota_partitions value (%s) matches the quota_partition value (%s) which would return double "
                "the quota values. Ignoring ext_quota_partitions",
                further.get(), settings.quota_partition.orEmpty());
  addResult(result, message.data());
  debug(0, "%s", message.data());
  settings.ext_quota_partitions.clear();
}

/// What it says is done, down to the archive just written.
void warnOfLogsNotKept(const Settings& settings, Text& result) {
  if (settings.logs_to_keep > 0) return;
  std::array<char, 128> message{};
  std::snprintf(message.data(), message.size(),
                "logs_to_keep=%d keeps no log: what is rotated or archived is deleted at once", settings.logs_to_keep);
  addResult(result, message.data());
  debug(0, "%s", message.data());
}

int checkWebServers(const Settings& settings, Text& result) {
  if (settings.nginx == 1 && settings.nginx_proxy == 1) {
    std::puts("nginx=0 should be set when nginx_proxy=1 (httpd is the main server).  Please change nginx=1 to nginx=0");
  }
  if (settings.nginx != 1 || settings.litespeed != 1) return 1;
  constexpr const char* kBoth = "nginx=1 and litespeed=1 are both set.  Please only select one for the zorvane.conf";
  std::puts(kBoth);
  return fail(result, kBoth);
}

}  // namespace

int checkSettings(Settings& settings, const ConfigFile& record, Text& result) {
  warnOfOldNames(record);
  lowerToTimeout(settings);
  keepInRange(settings);
  checkPigz(settings);
  checkCryptMethod(settings);
  checkQuotaPartitions(settings, result);
  warnOfLogsNotKept(settings, result);
  return checkWebServers(settings, result);
}

}  // namespace zvtaskq
