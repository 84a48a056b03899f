// Named places where a test can make the system fail: the error, kill and power-cut tests drive them.
//
// A point's name is "<scope>.<call>", e.g. "safe_write.rename"; the scope is set by `FailScope`. A plan is a text of
// rules joined by ",": "<name>:<action>[:<skip>]". The name may be "*" (every point) or end in ".*"; the action is an
// errno name ("ENOSPC"), "short" (a write that takes half), or "kill" (SIGKILL on the spot); skip is how many hits
// pass unharmed first. The plan comes from the environment variable ZVTASKQ_FAIL or from `setFailPlan`.
// All of it is compiled out unless ZVTASKQ_FAIL_POINTS is defined.
#pragma once

namespace zvtaskq {

enum class FailAction { none, error, shortWrite };

#ifdef ZVTASKQ_FAIL_POINTS

/// Names the group of points hit while it lives; restores the one before at its end.
class FailScope {
 public:
  explicit FailScope(const char* name);
  ~FailScope();
  FailScope(const FailScope&) = delete;
  FailScope& operator=(const FailScope&) = delete;

 private:
  const char* before_;
};

/// What the plan wants of this hit of the point; for `error` errno is set. Does not return when it is "kill".
FailAction failAction(const char* call);

/// A failure of a point that is met later, where the plan must not be looked at: in a child that may not allocate.
class FailLater {
 public:
  explicit FailLater(const char* call);
  /// True once when the call is to fail, with errno set.
  bool take();

 private:
  int error_;
};

/// Replaces the plan; null or empty means that nothing fails.
void setFailPlan(const char* plan);

#else

class FailScope {
 public:
  explicit FailScope(const char*) {}
};
class FailLater {
 public:
  explicit FailLater(const char*) {}
  bool take() { return false; }
};
inline FailAction failAction(const char*) {
  return FailAction::none;
}

#endif

/// True when the call named is to fail now, with errno set.
inline bool failPoint(const char* call) {
  return failAction(call) == FailAction::error;
}

}  // namespace zvtaskq
