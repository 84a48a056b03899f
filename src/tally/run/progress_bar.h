// How far a long task is: a bar on the terminal that the run was started from, else lines in its tracker.
#pragma once

#include <cstddef>

namespace zvtaskq {

class ProgressBar {
 public:
  ProgressBar() = default;
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  /// `total` is how many there are to be done.
  void begin(std::size_t total);
  /// The next one is taken up. A terminal sees it ten times a second at most.
  void next(const char* name);
  /// All that are to be done are; the bar goes.
  void end();
  ~ProgressBar() { end(); }

 private:
  void draw(const char* name);

  std::size_t total_ = 0;
  std::size_t done_ = 0;
  long long startedAt_ = 0;
  long long drawnAt_ = 0;
  int terminal_ = -1;
};

}  // namespace zvtaskq
