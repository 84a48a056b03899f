// The mark that keeps a password from letting anybody in: a "!" before its hash, in the system's, the mail server's and
// the FTP server's password files alike.
#pragma once

#include <string_view>

namespace zvtaskq {

inline constexpr char kSuspendedMark = '!';

/// Whether the field holds a hash behind the mark. One that is locked and holds none ("!", "!!", "!*", "*") is nobody's
/// suspension.
bool isSuspendedPassword(std::string_view field);

/// Whether the field holds a hash that can be marked: neither marked already, nor locked, nor empty.
bool isLivePassword(std::string_view field);

}  // namespace zvtaskq
