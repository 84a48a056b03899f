#include "services/certificate/check.h"

#include <sys/file.h>

#include <algorithm>
#include <ctime>
#include <set>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/panel/task.h"
#include "core/panel/task_queue.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/ticket.h"
#include "services/certificate/renewal.h"

namespace zvtaskq {

namespace {

constexpr const char* kTurn = "certificates.turn";
constexpr std::size_t kLongestNotice = 64UL << 10;
/// Days left, at which administrators are told.
constexpr int kStages[] = {14, 7, 3, 1, 0};
constexpr int kUnreadable = 6;

class CertificateCheck {
 public:
  explicit CertificateCheck(const char* only) : only_(only), now_(std::time(nullptr)), renewal_(notes_, now_) {}

  int run() {
    Text result;
    notes_.read(now_);
    if (!readCertificatesInUse(only_, all_, isWhole_, result)) {
      errorLog("The certificates cannot be checked: %s", result.orEmpty());
      return 0;
    }
    renew();
    std::string told = renewal_.told();
    for (const CertificateInUse& one : all_) {
      if (!renewal_.wasRenewed(one)) told.append(lookAtEnd(one));
    }
    forgetOthers();
    const int done = notes_.write();
    tell(told);
    return done;
  }

 private:
  void renew() {
    if (sys_conf->letsencrypt == 0) return;
    std::vector<const CertificateInUse*> due;
    for (const CertificateInUse& one : all_) {
      if (isDue(one, now_)) due.push_back(&one);
    }
    if (!renewal_.run(std::move(due), only_ != nullptr)) queueTask("rewrite", "letsencrypt");
  }

  /// A line for the notice when it has come nearer; empty when not.
  std::string lookAtEnd(const CertificateInUse& one) {
    if (!one.isThere || one.isUnknown) return "";
    CertificateNote note = notes_.get(one.name);
    const int stage = one.error.empty() ? stageOf(one.until - now_) : kUnreadable;
    const bool isNew = stage > note.told;
    note.told = stage;
    notes_.put(one.name, note);
    if (!isNew) return "";
    if (stage == kUnreadable) return joined(one.label(), ": the certificate cannot be read: ", one.error, "\n");
    return joined(one.label(), one.until > now_ ? ": the certificate ends on " : ": the certificate ended on ",
                  dateOf(one.until), "\n");
  }

  static std::string dateOf(long long time) {
    const auto seconds = static_cast<std::time_t>(time);
    std::tm parts{};
    char text[16] = "";
    if (gmtime_r(&seconds, &parts) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
  }

  void forgetOthers() {
    if (only_ != nullptr || !isWhole_) return;
    std::set<std::string> names;
    for (const CertificateInUse& one : all_) names.insert(one.name);
    notes_.keepOnly(names);
  }

  static void tell(std::string told) {
    if (told.empty()) return;
    if (told.size() > kLongestNotice) {
      told.resize(told.rfind('\n', kLongestNotice) + 1);
      told.append("and others, which the error log names\n");
    }
    constexpr int kGeneral = 1;
    Ticket ticket;
    static_cast<void>(ticket.notifyAdmins("", "Certificates that want attention", told.c_str(), kGeneral));
  }

  const char* only_;
  const long long now_;
  CertificateNotes notes_;
  Renewal renewal_;
  std::vector<CertificateInUse> all_;
  bool isWhole_ = true;
};

void queueOrder(const char* domain) {
  ConfigFile more(nullptr);
  more.setParam("domain", domain);
  static_cast<void>(pushOnTaskQueue("rewrite", "letsencrypt", nullptr, &more));
}

/// Held as long as it is open.
Descriptor takeTurn() {
  const AsRoot root;
  const Descriptor state = openStateFolder();
  Descriptor lock(state ? sys::openat(state.get(), kTurn, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600) : -1);
  return lock && sys::flockNow(lock.get(), LOCK_EX) == 0 ? std::move(lock) : Descriptor();
}

}  // namespace

int stageOf(long long left) {
  return static_cast<int>(
      std::count_if(std::begin(kStages), std::end(kStages), [&](int days) { return left <= days * kDay; }));
}

int checkCertificates(const char* only) {
  if (isDemo()) return 1;
  const Descriptor turn = takeTurn();
  if (!turn) {
    debug(10, "Another run looks at the certificates");
    // An order is not to be lost: that run may be past the domain.
    if (only != nullptr) queueOrder(only);
    return 1;
  }
  return CertificateCheck(only).run();
}

}  // namespace zvtaskq
