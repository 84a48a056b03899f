#include "core/template/token_values.h"

#include <utility>

namespace zvtaskq {

const char* TokenValues::find(std::string_view name) const {
  name_ = name;
  if (!defined_.empty()) {
    const auto found = defined_.find(name_);
    if (found != defined_.end()) return found->second.c_str();
  }
  return record_.getValue(name_.c_str());
}

bool TokenValues::holds(std::string_view name) const {
  name_ = name;
  return defined_.contains(name_) || record_.existsParam(name_.c_str()) != 0;
}

void TokenValues::define(std::string_view name, std::string value) {
  if (!name.empty()) defined_.insert_or_assign(std::string(name), std::move(value));
}

void TokenValues::settle() {
  for (const auto& [name, value] : defined_) static_cast<void>(record_.setParam(name.c_str(), value.c_str()));
  defined_.clear();
}

}  // namespace zvtaskq
