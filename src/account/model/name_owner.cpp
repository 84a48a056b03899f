#include "account/model/name_owner.h"

#include <string>

namespace zvtaskq {

bool mayHaveName(const ConfigFile& owners, const char* account, std::string_view name) {
  while (name.find('.') != std::string_view::npos) {
    const std::string domain(name);
    if (owners.existsParam(domain.c_str())) return owners.isValue(domain.c_str(), account) != 0;
    name.remove_prefix(name.find('.') + 1);
  }
  return true;
}

}  // namespace zvtaskq
