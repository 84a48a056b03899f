// The panel's own logs, kept from growing without bound.
#pragma once

namespace zvtaskq {

class Config;

/// The name of the mark (core/panel/marks.h) of when somebody last did it.
inline constexpr const char* kPanelLogsMark = "panel_logs";

/// Takes those of the panel's own logs that are above `log_rotate_size` megabytes (0 or less: none) through the
/// numbered rotation. Those in `logdir` are renamed: who writes to them opens them anew
/// within moments. `pipe_log`, which runs hold open, is copied and emptied. Works as root, whatever the identity, and
/// gives it back.
void rotatePanelLogs(const Config* conf);

}  // namespace zvtaskq
