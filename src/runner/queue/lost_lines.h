// Where queue lines go that nobody may carry out any more: left behind by a crash, or not readable.
#pragma once

namespace zvtaskq {

/// Moves the file at `path` to "<admindir>/task_queue_lost/<stamp>", mode 0600, with one error-log line that says where
/// and `why`; the newest twenty stay there. Where that folder cannot be used the file stays beside its old place, as
/// "<path>.<stamp>". 0 with errno when not even that is possible.
/// Runs as root, and leaves that identity.
[[nodiscard]] int keepAside(const char* path, const char* why);

}  // namespace zvtaskq
