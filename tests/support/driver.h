// A program that carries out one operation with the settings of the installed panel, under the identity that a run has
// between its steps: "<name>_driver OPERATION [ARGUMENT...]". It prints what the operation hands back in words; the
// exit status is 0 for its 1, 1 for its 0, 2 for a wrong call.
#pragma once

#include <span>

#include "core/config/config.h"
#include "core/text/text.h"

namespace zvtaskq {

/// What an operation is given: its arguments, the first of them at 0; a missing one is null. And where its words go.
struct DriverCall {
  const Config& conf;
  std::span<char*> arguments;
  Text& result;
  const char* at(std::size_t i) const { return i < arguments.size() ? arguments[i] : nullptr; }
};

struct DriverRow {
  const char* operation;
  int (*work)(const DriverCall& call);
};

int driverMain(std::span<char*> words, std::span<const DriverRow> rows);

}  // namespace zvtaskq
