// Queue files that have left their place: done with and kept for a few seconds, or overtaken by another run.
//
// A program that was about to open a queue file when it was taken over, and was then kept from running for longer than
// its lines took, opens and appends to a file that is done with. Nothing tells of such a program before it has the file
// open. So a queue file is not deleted on the spot: it retires to a folder of root's beside the queue,
// "<folder>/.<queue>.done", and a later run deletes it, queueing again what has arrived in it. The names there:
//   <inode>.<bytes done>         retired
//   <inode>.<bytes done>.moving  its late lines are being queued again
//   <inode>.busy                 a run still works on it, that another has overtaken
#pragma once

#include <string>

#include "runner/queue/queue_place.h"

namespace zvtaskq {

/// Opens the folder of retired files; `make`: makes it when it is missing. Not open, with errno, also when it is not a
/// folder of root's. Runs as root, as all here, and leaves that identity.
Descriptor openRetired(const QueuePlace& queue, bool make);

/// Retires a file of the queue, `what` it is, which was read up to byte `done`. 0 with errno, and the file stays where
/// it is. Runs under the hand-over lock.
[[nodiscard]] int retireQueueFile(const QueuePlace& queue, const StandingFile& file, const struct stat& what,
                                  long long done);

/// Moves a file that another run still works on out of its way. 0 with errno. Runs under the hand-over lock.
[[nodiscard]] int overtake(const QueuePlace& queue, const StandingFile& file, const struct stat& what);
/// The name that a file has, or had, in the folder of retired files after it was overtaken.
std::string overtakenName(const struct stat& what);

/// Looks after the retired files: queues the lines again that have arrived in them, and deletes those that retired ten
/// seconds ago and that nobody has open for writing. What a run left behind that did not end, half a line that nobody
/// will finish, and what cannot be read, is kept aside. Nothing to do costs next to nothing.
void revisitRetired(const QueuePlace& queue);

}  // namespace zvtaskq
