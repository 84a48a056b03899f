// Owners for what the TLS library gives out, and its words.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <string_view>

namespace zvtaskq {

template <auto Free>
struct Freer {
  template <class Thing>
  void operator()(Thing* thing) const {
    Free(thing);
  }
};
using Context = std::unique_ptr<SSL_CTX, Freer<SSL_CTX_free>>;
using Source = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;

/// A password is asked for: nobody is there to be asked.
int noPassphrase(char*, int, int, void*);

/// Reads from a text, which has to outlive it.
Source sourceOf(std::string_view text);
/// What could not be done, with the library's words.
std::string lastError(const char* what);

}  // namespace zvtaskq
