// Where queue lines go that nobody may carry out any more: left behind by a crash, or not readable.
#pragma once

#include <string>

#include "runner/queue/queue_place.h"

namespace zvtaskq {

/// Moves a file of the queue to "<admindir>/state/task_queue_lost/<stamp><queue>", where <queue> is the queue's path
/// with "_" for "/": mode 0600 of the panel's user, with one error-log line that says where and `why`. The newest
/// twenty of each queue stay there.
///
/// Where that is not possible the file stays beside its queue, as "<queue>.<stamp>", and the line says so: when the
/// folder cannot be used, when the disk is full, when it is a folder, and when more than 16 MB of it stand on the disk
/// (holes do not count, and are never written). 0 with errno when not even that is possible. Runs as root under the
/// hand-over lock, and leaves that identity.
[[nodiscard]] int keepAside(const QueuePlace& queue, const StandingFile& file, const std::string& why);

}  // namespace zvtaskq
