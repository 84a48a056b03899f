#include "tally/bruteforce/lines/log_position.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/panel/marks.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {
constexpr int kStateDebug = 1000;
constexpr const char* kCheck = "check";
}  // namespace

int get_last_scan_info(const char* path, const ConfigFile& state, LogPosition& last) {
  last = LogPosition{};
  const char* kept = state.getValue(path);
  if (kept == nullptr) return 0;
  ConfigFile record(nullptr);
  record.fillFromPost(kept);
  LogPosition found;
  long long& position = found.mark.offset;
  if (!record.getValue("size", &found.size) || !record.getValue("position", &position)) return 0;
  static_cast<void>(record.getValue("inode", &found.mark.inode));
  static_cast<void>(record.getValue("device", &found.mark.device));
  // As text: it may be larger than a number of a record.
  if (const char* check = record.getValue(kCheck)) found.mark.check = std::strtoull(check, nullptr, 16);
  if (found.size < 0 || position < 0 || position > found.size) return 0;
  last = found;
  return 1;
}

int canKeepTrackOf(const char* path) {
  if (std::strpbrk(path, "=\r\n") == nullptr && !commentLine(path)) return 1;
  constexpr std::size_t kLongest = 300;
  if (!isDueAgain("brute_log_name", printable(path).substr(0, kLongest))) return 0;
  errorLog("Tally::scan_log: %s: a log of that name cannot be kept track of", path);
  return 0;
}

int set_last_scan_info(const char* path, ConfigFile& state, const LogPosition& now) {
  ConfigFile record(nullptr);
  record.setParam("size", now.size);
  record.setParam("position", now.mark.offset);
  record.setParam("inode", now.mark.inode);
  record.setParam("device", now.mark.device);
  char check[24];
  std::snprintf(check, sizeof check, "%llx", now.mark.check);
  record.setParam(kCheck, check);
  const Text text = record.createPostString(0);
  return state.setParam(path, text);
}

LogNews newsOf(const char* path, const LogPosition& last, const struct stat& now, int fd) {
  const auto size = static_cast<long long>(now.st_size);
  const LogMark& mark = last.mark;
  // Another program of the panel may have kept the position alone.
  const bool wasCut = fd >= 0 && mark.check != 0 && mark.offset > 0 && !mark.fits(fd);
  const bool isAnother = wasCut || (mark.inode != 0 && mark.inode != now.st_ino);
  if (size == last.size && !isAnother) {
    debug(kStateDebug,
          "Tally::scan_log: %s:   cur_size (%lld) == last_size (%lld). Assuming nothing changed. Skipping.", path, size,
          last.size);
    return LogNews::nothing;
  }
  if (size == 0) return LogNews::empty;
  if (size < last.size) {
    debug(kStateDebug,
          "Tally::scan_log: %s:   cur_size (%lld) < last_size (%lld). Assuming log was rotated. Starting from "
          "beginning.",
          path, size, last.size);
    return LogNews::anew;
  }
  if (!isAnother) return LogNews::more;
  debug(kStateDebug, "Tally::scan_log: %s: another file stands there than the one last read. Starting from beginning.",
        path);
  return LogNews::anew;
}

}  // namespace zvtaskq
