// One queue file from its hand-over to its delete.
#pragma once

namespace zvtaskq {

/// Takes the queue file over and carries out every line. `mailMode` 0: a `reset` of `all` runs first, lines that name a
/// system service run last, coalesced to the strongest verb a service. 1: every line is one of the mail queue's. A
/// missing file and a null path are passed over in silence.
void processQueue(const char* path, int mailMode);
void process_mail_queue(const char* path);

}  // namespace zvtaskq
