// Queue files whose lines are done, kept for a few seconds.
//
// A program that was about to open a queue file when it was taken over, and was then kept from running for longer than
// its lines took, opens and appends to a file that is done with. Nothing tells of such a program before it has the file
// open. So a queue file is not deleted on the spot: it retires to a folder of root's beside the queue,
// "<folder>/.<queue>.done/<inode>.<bytes done>", and a later run deletes it, queueing again what has arrived in it.
#pragma once

#include <string>

namespace zvtaskq {

/// Retires the file at `name`, which was read up to byte `done`, of the queue at `path`. 0 with errno, and the file
/// stays where it is. Runs as root under the hand-over lock.
[[nodiscard]] int retireQueueFile(const std::string& path, const char* name, long long done);

/// Looks after the retired files of the queue at `path`: queues the lines again that have arrived in them, and deletes
/// those that retired ten seconds ago and that nobody has open for writing. Nothing to do costs next to nothing. Runs
/// as root, and leaves that identity.
void revisitRetired(const std::string& path);

}  // namespace zvtaskq
