// The helper zvcert, which alone reads certificates and makes keys.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

/// Requests that are put to the helper at a time, by who has very many.
inline constexpr std::size_t kManyCertificates = 500;

/// The `error` of what got no answer.
inline constexpr const char* kNoAnswer = "no answer";
/// That of what the helper ends on, each time it is asked.
inline constexpr const char* kDeadly = "whoever reads it breaks off";

/// A request of one pair (see src/libexec/certificate/main.cpp), to which others may be added by `addPair`.
std::string certificateRequest(const char* key, std::string_view value);

/// Puts the requests to the helper and hands over its answers, each with the place of its request: `result` is "done",
/// or "failed" with `error`. What it ends on has "failed" with `kDeadly`, and the rest is put to it again, as far as it
/// does not end too often. What got no answer has "failed" with `kNoAnswer`, after an error-log line. The helper runs
/// as the panel's user, which is also the identity that `take` is called with; that of the moment is given back.
void askCertificateHelper(std::vector<std::string> requests,
                          const std::function<void(std::size_t which, const ConfigFile& answer)>& take);

}  // namespace zvtaskq
