// Whether there is a newer release of the panel than this one.
#pragma once

#include <optional>
#include <string_view>

namespace zvtaskq {

/// The numbers of a version such as "1.50.1" (the last one, and its dot, may be missing).
struct Version {
  int major = 0;
  int minor = 0;
  int patch = 0;
  auto operator<=>(const Version&) const = default;
};
/// Nothing for a text that holds anything else, but for blanks around it.
std::optional<Version> readVersion(std::string_view text);

/// Asks for the newest release: the hook "newest_release.sh" when there is one, whose answer is waited for at most
/// `get_current_version_timeout` seconds and never more than five; else the file "newest_release" in `admindir`, which
/// a mirror or an administrator may keep. What it says is noted in "newer_release" of the state folder: the `version`,
/// the one that is `running`, whether it is `newer` (yes or no), and `since` when that is known (seconds since the
/// epoch). Nobody to ask changes nothing.
///
/// 0 with an error-log line when the answer is no version, or cannot be read or noted. May be called under any
/// identity; leaves nobody.
int noteNewerRelease();

}  // namespace zvtaskq
