// What a program that we start sees as its environment: little, and nothing that came from outside.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/sys/identity.h"

namespace zvtaskq {

/// Name and value.
using Variable = std::pair<std::string, std::string>;

/// The clean environment of a program that runs as `who`, as "NAME=value" texts: PATH, HOME, USER, LOGNAME,
/// SHELL=/bin/sh and LANG=`language`. An id without an account gets its number as name and "/" as home.
std::vector<std::string> cleanEnvironment(Ids who, std::string_view language = "C");

/// Replaces the environment of this process by the clean one of its real user. For the very start of the program,
/// before anything reads a variable: what a caller set (PATH, LD_*, TZ, ...) is gone from then on.
void useCleanEnvironment();

/// Whether a name that somebody else chose may become a variable of a root script: a plain name
/// ([A-Za-z_][A-Za-z0-9_]*, at most 128 characters) that no shell, loader, language or common tool obeys.
bool isExportableName(std::string_view name);

/// Adds the variables whose names may be exported to `environment`. A value ends at its first null byte and is cut
/// at 128 KB (the kernel's limit for one); past 1 MB in all the rest is left out with an error-log line.
void addVariables(std::vector<std::string>& environment, const std::vector<Variable>& variables);

}  // namespace zvtaskq
