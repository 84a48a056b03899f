#include "tally/run/progress_bar.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "core/panel/progress.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kWidth = 30;
constexpr long long kBetweenDraws = 100;
constexpr long long kMillisecond = 1000;
constexpr const char* kClearLine = "\r\033[K";

long long milliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void ProgressBar::begin(std::size_t total) {
  total_ = total;
  done_ = 0;
  startedAt_ = milliseconds();
  terminal_ = runFlags.terminal;
}

void ProgressBar::next(const char* name) {
  setProgramTask(joined("tally of ", name).c_str());
  track_process("tally of %s, %zu of %zu", name, done_ + 1, std::max(total_, done_ + 1));
  if (terminal_ >= 0 && milliseconds() - drawnAt_ >= kBetweenDraws) draw(name);
  ++done_;
}

void ProgressBar::draw(const char* name) {
  drawnAt_ = milliseconds();
  const std::size_t total = std::max(total_, done_ + 1);
  const double seconds = static_cast<double>(std::max(drawnAt_ - startedAt_, 1LL)) / kMillisecond;
  const double rate = static_cast<double>(done_) / seconds;
  const double left = rate > 0 ? static_cast<double>(total - done_) / rate : 0;
  const std::size_t full = kWidth * done_ / total;
  char text[256];
  std::snprintf(text, sizeof text, "%s[%s%s] %zu of %zu, %.0f a second, %.0f s left, %.32s", kClearLine,
                std::string(full, '#').c_str(), std::string(kWidth - full, '.').c_str(), done_, total, rate, left,
                name);
  static_cast<void>(sys::writeAll(terminal_, text));
}

void ProgressBar::end() {
  setProgramTask(nullptr);
  if (terminal_ >= 0 && drawnAt_ > 0) static_cast<void>(sys::writeAll(terminal_, kClearLine));
  terminal_ = -1;
}

}  // namespace zvtaskq
