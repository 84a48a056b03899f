// Asking the name servers: this one by its control program, this one and others by questions.
#pragma once

#include <string>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

/// One `rndc` command. 0 with its words in `result`. May be called under any identity, which is the same afterwards.
[[nodiscard]] int tellNameServer(std::vector<std::string> command, Text& result);

/// A zone as a server serves it.
struct ServedZone {
  /// 0 when it does not.
  unsigned long serial = 0;
  /// The name server that it came from, without the last dot.
  std::string primary;
};
/// How a server ("192.0.2.2", "2001:db8::2", with "#port" behind it when it is not 53) serves a zone; nothing when it
/// does not, or does not answer within two seconds, which `answered` tells apart. It asks the program `dig`, without
/// recursion.
ServedZone servedZone(const std::string& server, const std::string& zone, bool& answered);

/// Whether a serial is at least as new as another, in the name servers' way of counting.
bool isAsNew(unsigned long serial, unsigned long as);

}  // namespace zvtaskq
