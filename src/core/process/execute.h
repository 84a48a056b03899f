// Running a command and having its exit status, in the forms that the rest of the program uses. What they share is
// the scheme of core/process/child.h.
//
// All run the child for good as the effective identity of the moment (`executeAsUser`: as the user named) and leave
// the identity of this process as it was. `command` is what "/bin/sh -c" gets, with the clean environment; with
// `direct` set it is the path of a program that runs without arguments and with the environment of this process, its
// argument zero being the path's last component with the slash in front of it.
//
// `outputFd` says which descriptor of the child is meant: 1 its standard output, 2 its standard error, 3 both. When
// `maxOutput` (bytes) is above 0 the text of it replaces the text in `command`; it is only where the buffer starts, a
// longer text is kept too, up to 64 MB. With 0 nothing is read, and what the child says on it goes to /dev/null.
//
// They return the exit status (0 to 255), the number of the signal that killed the child, 127 when the program could
// not be started ("(1)Execl error on %s : %s" or "(2)Execl error on %s: %s" in the error log), -1 when there was no
// child. There is no time limit: what may hang belongs in a `ChildPlan`.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

int execute(Text& command, int maxOutput, int outputFd, int direct);
/// The same over a text made by newString, which the caller keeps owning; it may be replaced by another.
int execute(char*& command, int maxOutput, int outputFd, int direct);

/// Feeds `input` to the command as it is; null feeds nothing.
int executestdin(Text& command, const char* input, int maxOutput, int outputFd, int direct);
/// Feeds two or three answers, such as a password given twice. Each is ended by a line feed when it does not end
/// with one; a null is left out.
int executeDBLstdin(Text& command, const char* input1, const char* input2, int maxOutput, int outputFd, int direct);
int executeTRPLstdin(Text& command, const char* input1, const char* input2, const char* input3, int maxOutput,
                     int outputFd, int direct);

/// Runs the command as `user` with its primary group. -1 with an error-log line, and nothing run, for an unknown one.
int executeAsUser(const char* user, Text& command, int maxOutput, int outputFd, int direct);

/// Sleeps. A signal ends it early: debug line "nap(%d ms): nanosleep error: %s" (level 1000), as for any failure.
void nap(int milliseconds);

}  // namespace zvtaskq
