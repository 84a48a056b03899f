// A set of texts, each with a number: what counts of names are kept by when there may be a hundred thousand of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/tables/seeded_hash.h"
#include "core/text/text_pool.h"

namespace zvtaskq {

class NameTable {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  NameTable();

  /// The number of the name, kNone when it is not there.
  std::uint32_t find(std::string_view name) const { return slots_[slotOf(name, hash_(name))]; }
  /// The number of the name, which is added when it is not there; kNone when memory is short.
  std::uint32_t add(std::string_view name);
  /// Valid until the table goes.
  std::string_view at(std::uint32_t number) const { return names_[number].text; }
  std::size_t size() const { return names_.size(); }
  /// The bytes of all names together.
  std::size_t textSize() const { return textSize_; }

 private:
  struct Name {
    std::string_view text;
    std::uint64_t hash;
  };
  std::size_t slotOf(std::string_view name, std::uint64_t hash) const;
  void grow();

  std::vector<Name> names_;
  std::vector<std::uint32_t> slots_;
  SeededHash hash_;
  std::size_t textSize_ = 0;
  TextPool pool_;
};

}  // namespace zvtaskq
