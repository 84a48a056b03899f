// The update of the panel by a package of the distribution's kind.
#pragma once

namespace zvtaskq {

/// Installs `update_package` when it is newer than what is installed and signed by `update_key`: fetched to a place of
/// root's, judged there, its program tried as nobody, installed by the package manager, and its program asked for its
/// version. When that does not answer the package of before is put back. A failure is told to the administrators.
/// However it went, the panel's service is restarted afterwards. 0 when there was nothing to do or it failed. May be
/// called under any identity; leaves nobody.
int updateProgram();

}  // namespace zvtaskq
