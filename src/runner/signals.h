// Signals: what is asked of a run while it works.
//
// A handler only notes its signal; what has to be said and done is said and done at the next safe point.
#pragma once

namespace zvtaskq {

/// Notes SIGUSR1 and SIGUSR2 from now on, ignores SIGPIPE, and answers what was noted at every safe point.
void installSignalHandlers();

/// Answers one signal: USR1 with what is being processed, USR2 by reading new instructions, a segmentation fault by
/// ending the process (status 666, or 665 when it happens again meanwhile), any other with a line. Leaves the effective
/// identity as it found it.
void handleSignal(int number);

}  // namespace zvtaskq
