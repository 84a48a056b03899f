#include "libexec/certificate/judge.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>

namespace zvtaskq {

namespace {

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

/// Nobody is there to be asked.
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

std::string whyNoChain(BIO* source, X509* certificate) {
  bool hasChain = false;
  bool hasIssuer = false;
  while (const Certificate next{PEM_read_bio_X509(source, nullptr, noPassphrase, nullptr)}) {
    hasChain = true;
    if (X509_check_issued(next.get(), certificate) == X509_V_OK) hasIssuer = true;
  }
  const unsigned long code = ERR_peek_last_error();
  const bool isOver = ERR_GET_LIB(code) == ERR_LIB_PEM && ERR_GET_REASON(code) == PEM_R_NO_START_LINE;
  if (!isOver) return lastError("the chain cannot be read");
  ERR_clear_error();
  return !hasChain || hasIssuer ? "" : "the chain is that of another certificate";
}

bool toSeconds(const ASN1_TIME* time, long long& seconds) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return false;
  seconds = timegm(&parts);
  return true;
}

}  // namespace

std::string whyNoCertificate(std::string_view pem) {
  ERR_clear_error();
  const Context context(SSL_CTX_new(TLS_server_method()));
  const Source source = sourceOf(pem);
  const Source keySource = sourceOf(pem);
  if (!context || !source || !keySource) return "there is no memory";
  const Certificate certificate(PEM_read_bio_X509_AUX(source.get(), nullptr, noPassphrase, nullptr));
  if (!certificate || SSL_CTX_use_certificate(context.get(), certificate.get()) != 1) {
    return lastError("the certificate cannot be used");
  }
  std::string why = whyNoChain(source.get(), certificate.get());
  if (!why.empty()) return why;
  const Key key(PEM_read_bio_PrivateKey(keySource.get(), nullptr, noPassphrase, nullptr));
  if (!key) return lastError("the key cannot be read");
  if (SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1) return lastError("the key cannot be used");
  return "";
}

std::string readDates(std::string_view pem, Dates& dates) {
  ERR_clear_error();
  const Source source = sourceOf(pem);
  const Certificate one(source ? PEM_read_bio_X509_AUX(source.get(), nullptr, noPassphrase, nullptr) : nullptr);
  const bool isRead = one && toSeconds(X509_get0_notBefore(one.get()), dates.from) &&
                      toSeconds(X509_get0_notAfter(one.get()), dates.until);
  return isRead ? "" : lastError("the certificate cannot be read");
}

}  // namespace zvtaskq
