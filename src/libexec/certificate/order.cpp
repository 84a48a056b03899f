#include "libexec/certificate/order.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include "core/text/names.h"
#include "core/text/split.h"
#include "libexec/certificate/openssl.h"

namespace zvtaskq {

namespace {

using Request = std::unique_ptr<X509_REQ, Freer<X509_REQ_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;

void freeExtensions(STACK_OF(X509_EXTENSION) * all) {
  sk_X509_EXTENSION_pop_free(all, X509_EXTENSION_free);
}
using Extensions = std::unique_ptr<STACK_OF(X509_EXTENSION), Freer<freeExtensions>>;

/// What was written to a memory sink.
std::string textOf(BIO* sink) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(sink, &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

/// "DNS:bob.example,DNS:www.bob.example"; empty when one of them is no host name.
std::string alternativesOf(std::string_view list) {
  std::string all;
  for (const std::string_view name : wordsIn(list, ':')) {
    if (!isValidDomain(std::string(name).c_str())) return "";
    all.append(all.empty() ? "DNS:" : ",DNS:").append(name);
  }
  return all;
}

bool addNames(X509_REQ* request, const std::string& alternatives) {
  const Extension names(X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternatives.c_str()));
  Extensions all(sk_X509_EXTENSION_new_null());
  if (!names || !all) return false;
  X509_EXTENSION* copy = X509_EXTENSION_dup(names.get());
  if (copy == nullptr || sk_X509_EXTENSION_push(all.get(), copy) == 0) {
    X509_EXTENSION_free(copy);
    return false;
  }
  return X509_REQ_add_extensions(request, all.get()) == 1;
}

}  // namespace

std::string makeOrder(std::string_view names, Order& order) {
  ERR_clear_error();
  const std::string alternatives = alternativesOf(names);
  if (alternatives.empty()) return "there is no name to ask for, or one is no host name";
  const Key key(EVP_EC_gen("P-256"));
  const Request request(X509_REQ_new());
  const bool isMade = key && request && X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) == 1 &&
                      X509_REQ_set_pubkey(request.get(), key.get()) == 1 && addNames(request.get(), alternatives) &&
                      X509_REQ_sign(request.get(), key.get(), EVP_sha256()) > 0;
  if (!isMade) return lastError("the request cannot be made");
  const Source keySink(BIO_new(BIO_s_mem()));
  const Source requestSink(BIO_new(BIO_s_mem()));
  if (!keySink || !requestSink || PEM_write_bio_X509_REQ(requestSink.get(), request.get()) != 1 ||
      PEM_write_bio_PrivateKey(keySink.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    return lastError("the key cannot be written");
  }
  order = {textOf(keySink.get()), textOf(requestSink.get())};
  return "";
}

}  // namespace zvtaskq
