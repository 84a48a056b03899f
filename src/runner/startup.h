// From the first argument to the exit: the steps around the one run.
#pragma once

namespace zvtaskq {

class Config;

/// Does everything, in the documented order, and returns the exit status: 0, or 1 when not root, without a pid file,
/// or when the standard streams cannot be redirected.
int runProgram(int argumentCount, char** arguments, Config& conf);

}  // namespace zvtaskq
