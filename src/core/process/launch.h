// The fork, and the child's side of it up to its program. Only core/process/child.cpp and core/process/talk.cpp use
// this.
#pragma once

#include <sys/types.h>

#include "core/sys/fail_point.h"
#include "core/sys/identity.h"

namespace zvtaskq {

/// All that a child needs, made ready by the parent: the child itself must not allocate, lock or log.
struct ChildLaunch {
  const char* path = nullptr;
  char* const* arguments = nullptr;
  char* const* environment = nullptr;
  /// Null for the directory it is born in.
  const char* workingDirectory = nullptr;
  Ids identity{};
  /// What becomes its descriptors 0, 1 and 2; each above 2, or -1 to keep what it has.
  int streams[3] = {-1, -1, -1};
  /// Takes `ChildReport`s; closes itself when the program starts. Above 2.
  int report = -1;
  /// A planned failure of the first stream that is put in its place.
  FailLater firstDup{"process.dup"};
};

/// What went wrong in the child before its program ran.
struct ChildReport {
  enum class Step : int { dup, identity, directory, exec };
  Step step;
  int error;
  /// For a dup: which descriptors were to become its standard input and the first of its outputs.
  int old0, new0, old1, new1;
};

/// Makes a process and turns it into the program. -1 (errno set) when there is none to be had. A failure on the
/// child's side is reported and ends it with status 127, except that a descriptor that could not be put in place is
/// reported and the child goes on. The caller's signal mask and handlers are as before when this returns.
pid_t launchChild(const ChildLaunch& launch);

}  // namespace zvtaskq
