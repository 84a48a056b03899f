#include "libexec/certificate/openssl.h"

#include <openssl/err.h>

namespace zvtaskq {

int noPassphrase(char*, int, int, void*) {
  return 0;
}

Source sourceOf(std::string_view text) {
  return Source(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string lastError(const char* what) {
  const unsigned long code = ERR_peek_last_error();
  const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
  return reason == nullptr ? what : std::string(what) + ": " + reason;
}

}  // namespace zvtaskq
