// Asking for certificates: of which domain, when again after a failure, and putting them in place.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "services/certificate/acme_client.h"
#include "services/certificate/in_use.h"
#include "services/certificate/notes.h"

namespace zvtaskq {

inline constexpr long long kDay = 86400;
inline constexpr long long kWeek = 7 * kDay;

/// Whether a certificate that the panel keeps renewed is to be asked for at that time: there is none, it is for other
/// names or none that the panel asked for, it is `letsencrypt_renewal_days` old, or less than a tenth of its time is
/// left.
bool isDue(const CertificateInUse& one, long long now);
/// Seconds after which a domain is tried again that has failed so many times in a row: half a day, and twice as long
/// each time, up to a week.
long long waitAfter(int failures);

/// Has all of these asked for in their order, but those of an account that has used up its share of time after all
/// others: sites that do not answer hold up only their own account's. `ask` says how long it `took`; false ends it.
void inFairTurns(const std::vector<const CertificateInUse*>& all, std::chrono::steady_clock::duration share,
                 const std::function<bool(const CertificateInUse&, std::chrono::steady_clock::duration& took)>& ask);

/// One run of renewals. It ends when its time or number is over: the rest is for the next.
class Renewal {
 public:
  Renewal(CertificateNotes& notes, long long now) : notes_(notes), now_(now) {}

  /// Asks for all of these, in fair turns: those that are there, the nearest end first, then those that never were.
  /// Domains that
  /// failed lately are passed over, unless `isOrdered`, and so are those that were asked for often enough this week.
  /// One that fails does not keep the others. 0 when there is more to do than one run may. Works under any identity,
  /// which is the same afterwards.
  int run(std::vector<const CertificateInUse*> due, bool isOrdered);

  /// What the administrators are to be told, a line a certificate.
  const std::string& told() const { return told_; }
  bool wasRenewed(const CertificateInUse& one) const;

 private:
  /// One that was issued and is not in place yet.
  struct Issued {
    const CertificateInUse* of;
    std::string certificate;
    std::string chain;
    std::string key;
    std::string record;
  };

  bool mayAsk(const CertificateInUse& one, bool isOrdered);
  Signing ask(const CertificateInUse& one);
  std::string whyNot(const CertificateInUse& one, const std::string& key, const std::string& pem) const;
  void unreachable(const std::string& why);
  void failed(const CertificateInUse& one, const std::string& why);
  void place();
  void offer(class Rewrite& rewrite, const Issued& issued) const;
  void succeeded(const CertificateInUse& one);

  CertificateNotes& notes_;
  const long long now_;
  AcmeClient client_;
  std::vector<Issued> issued_;
  std::vector<const CertificateInUse*> renewed_;
  std::string told_;
};

}  // namespace zvtaskq
