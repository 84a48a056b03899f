// The hash of texts that strangers choose.
#pragma once

#include <cstdint>
#include <string_view>

namespace zvtaskq {

/// Drawn anew for every table, so that nobody can choose texts that meet.
class SeededHash {
 public:
  SeededHash();
  std::uint64_t operator()(std::string_view text) const;

 private:
  std::uint64_t seed_;
};

}  // namespace zvtaskq
