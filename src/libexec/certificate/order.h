// What a certificate is asked for with.
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

struct Order {
  /// A new key that no other certificate has (P-256), as PEM.
  std::string key;
  /// The request that it has signed, as PEM.
  std::string request;
};

/// Makes an order for one certificate for all these host names, separated by colons. What is wrong; empty when it was
/// made.
std::string makeOrder(std::string_view names, Order& order);

}  // namespace zvtaskq
