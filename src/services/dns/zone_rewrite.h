// Writing the zones of all domains, or of one, from the data of their accounts.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Which zones are written, and how.
struct ZoneOrder {
  /// Null for all.
  const char* domain = nullptr;
  /// Serials are raised even where nothing has changed.
  bool raisesSerials = false;
};

/// Writes the zones that have changed, and the list of zones; zones that the check refuses are left out, which the
/// administrators are told. What is listed of a domain that nobody owns goes: with `cluster` only when that domain was
/// ordered by name. Then a reload of the name server is queued. 0 with the reason in `result` when nothing could be put
/// in place. May be called under any identity; leaves nobody.
[[nodiscard]] int rewriteZones(const ZoneOrder& order, Text& result);

}  // namespace zvtaskq
