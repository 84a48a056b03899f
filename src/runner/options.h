// The command line.
#pragma once

namespace zvtaskq {

class Config;

struct Options {
  /// Set by any argument that begins with "d": the standard streams stay where they are.
  int dodebug = 0;
};

/// Whether one of the arguments is "--version".
bool asksVersion(int count, char** arguments);
/// Prints the version, without reading anything; the exit status.
int showVersion();

/// Handles the arguments from left to right. Help, an unknown dash option and a configuration that cannot be read end
/// the process with status 0, in the documented words on standard output.
Options parseArguments(int count, char** arguments, Config& conf);

/// One argument that begins with a dash: "--config=<path>" reads another configuration, "--custombuild" restricts the
/// run to the custom-build queue. An empty option does nothing.
void setup_dash_options(const char* option, Config& conf);

}  // namespace zvtaskq
