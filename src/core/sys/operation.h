// A piece of work that a room above or beside offers: declared by the room that owns it, filled in by the build that
// holds that room, called by whoever needs it.
#pragma once

#include <utility>

namespace zvtaskq {

/// Notes that work was asked for that this build does not hold.
void noteUnavailable(const char* operation);
/// Writes what was noted since the last call as one error-log line, "<what>: not available in this build: <names>",
/// and forgets it. Nothing noted, nothing written.
void reportUnavailable(const char* what);

template <class... Args>
class Operation {
 public:
  /// `name` is what the log calls the work when this build does not hold it.
  explicit constexpr Operation(const char* name) : name_(name) {}

  void provide(int (*function)(Args...)) { function_ = function; }
  /// True, and noted, when this build does not hold it: for callers that would misread its 0 as a failure.
  bool missing() const {
    if (function_ == nullptr) noteUnavailable(name_);
    return function_ == nullptr;
  }
  /// Does the work and returns what it returned (1 success, 0 failure). When this build does not hold it, that is
  /// noted and the answer is 0.
  int operator()(Args... arguments) const { return missing() ? 0 : function_(std::forward<Args>(arguments)...); }

 private:
  const char* name_;
  int (*function_)(Args...) = nullptr;
};

}  // namespace zvtaskq
