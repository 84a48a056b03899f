#include "core/text/system_result.h"

namespace zvtaskq {

Text& systemResult() {
  static Text result;
  return result;
}

const char* getSysResult() {
  return systemResult().orEmpty();
}

}  // namespace zvtaskq
