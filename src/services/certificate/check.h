// The check of all certificates: which end soon, and which the panel renews.
#pragma once

namespace zvtaskq {

/// How near the end of a certificate is that has so many seconds left: 0 for far enough, then rising with 14, 7, 3 and
/// 1 days, 5 when it is over.
int stageOf(long long left);

/// Looks at every certificate in use, asks with `letsencrypt` for new ones where the panel keeps them renewed, and
/// sends the administrators one notice of what ends soon and what failed; each is told of once a stage, and each time
/// that an attempt failed. With `only` it is about that domain alone, which then is tried whatever failed lately.
/// Another process that does the same is left to it. When there is more to renew than one run may, the rest is queued.
/// 0 with an error-log line. May be called under any identity; leaves nobody.
int checkCertificates(const char* only);

}  // namespace zvtaskq
