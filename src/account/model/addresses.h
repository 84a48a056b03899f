// The addresses of this server: "ip.list" in `admindir`, and a record for each, "ips/<address>".
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

/// The `status` of the address that the server itself is reached at.
inline constexpr const char* kServerStatus = "server";
inline constexpr const char* kSharedStatus = "shared";
inline constexpr const char* kFreeStatus = "free";
inline constexpr const char* kOwnedStatus = "owned";

struct Address {
  /// As "ip.list" writes it.
  std::string text;
  /// Its record could be read; what follows is of no use when not.
  bool hasRecord = false;
  /// "server", "shared", "free" or "owned".
  std::string status;
  /// The addresses that are linked to it, in their order.
  std::vector<std::string> linked;
  /// The accounts that use it, by the last count; -1 when they have not been counted.
  int users = -1;
};

/// Reads the record of an address. 0 with why in its result.
[[nodiscard]] int readAddress(const char* address, ConfigFile& record);
/// Reads all addresses in one pass, in the list's order. A line that is none is left out, and one whose record cannot
/// be read has none, each with an error-log line. 0, with the error-log line "ip.list: readFile error: %s", when the
/// list cannot be read. Leaves nobody.
[[nodiscard]] int readAddresses(std::vector<Address>& addresses);
/// Lets `change` change the record of an address, from the reading to the writing under its lock. It is written only
/// when `change` answers that it did. 0 with an error-log line. Leaves nobody.
[[nodiscard]] int changeAddress(const char* address, const std::function<bool(ConfigFile& record)>& change);

/// The addresses of a comma-separated list, in their order, without blanks; what is no address is left out.
std::vector<std::string> addressesIn(const char* list);

}  // namespace zvtaskq
