#include "libexec/certificate/judge.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <ctime>

#include "core/text/split.h"
#include "libexec/certificate/openssl.h"

namespace zvtaskq {

namespace {

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

bool readDatesOf(const X509* certificate, Dates& dates) {
  return toSeconds(X509_get0_notBefore(certificate), dates.from) &&
         toSeconds(X509_get0_notAfter(certificate), dates.until);
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

std::string whyNotFor(std::string_view pem, std::string_view names) {
  ERR_clear_error();
  const Source source = sourceOf(pem);
  Certificate one(source ? PEM_read_bio_X509_AUX(source.get(), nullptr, noPassphrase, nullptr) : nullptr);
  Dates dates;
  if (!one || !readDatesOf(one.get(), dates)) return lastError("the certificate cannot be read");
  for (const std::string_view name : wordsIn(names, ':')) {
    constexpr unsigned kNoPatterns = X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;
    if (X509_check_host(one.get(), name.data(), name.size(), kNoPatterns, nullptr) != 1)
      return joined("it is not for ", name);
  }
  const long long now = std::time(nullptr);
  if (now < dates.from || now >= dates.until) return "it is not valid now";
  while (Certificate next{PEM_read_bio_X509(source.get(), nullptr, noPassphrase, nullptr)}) {
    if (X509_verify(one.get(), X509_get0_pubkey(next.get())) != 1) return "its chain has not signed it";
    one = std::move(next);
  }
  ERR_clear_error();
  return "";
}

std::string readDates(std::string_view pem, Dates& dates) {
  ERR_clear_error();
  const Source source = sourceOf(pem);
  const Certificate one(source ? PEM_read_bio_X509_AUX(source.get(), nullptr, noPassphrase, nullptr) : nullptr);
  return one && readDatesOf(one.get(), dates) ? "" : lastError("the certificate cannot be read");
}

}  // namespace zvtaskq
