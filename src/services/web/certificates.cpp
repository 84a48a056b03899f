#include "services/web/certificates.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "services/certificate/helper.h"

namespace zvtaskq {

namespace {

void makeFile(const NewCertificate& one) {
  SafeFile file(one.path.c_str());
  const bool isOpen = file.open() != 0;
  if (isOpen) file.write(one.pem);
  if (isOpen && file.finish() && file.putInPlace()) return;
  errorLog("%s %s: %s: %s", one.account.c_str(), one.domain.c_str(), one.path.c_str(), std::strerror(errno));
}

void take(const NewCertificate& one, const ConfigFile& answer) {
  if (answer.isValue("result", "done")) return makeFile(one);
  errorLog("%s %s: certificate is refused: %s", one.account.c_str(), one.domain.c_str(),
           printable(answer.getOrEmpty("error")).c_str());
}

}  // namespace

void judgeCertificates(const std::vector<NewCertificate>& all) {
  std::vector<std::string> requests;
  for (const NewCertificate& one : all) requests.push_back(certificateRequest("pem", one.pem));
  askCertificateHelper(std::move(requests),
                       [&](std::size_t which, const ConfigFile& answer) { take(all[which], answer); });
}

}  // namespace zvtaskq
