#include "services/certificate/renewal.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/post_string.h"
#include "notify/ticket.h"
#include "services/certificate/helper.h"
#include "services/certificate/wanted.h"
#include "services/rewrite/left_out.h"
#include "services/rewrite/rewrite.h"

namespace zvtaskq {

namespace {

constexpr int kMostAtATime = 200;
using Clock = std::chrono::steady_clock;
constexpr std::chrono::minutes kMostTime{10};
/// Less than one question that is never answered takes.
constexpr std::chrono::seconds kMostOfAnAccount{100};
/// That are put in place together: what is lost when a run is killed.
constexpr std::size_t kMostTogether = 25;
constexpr long long kFirstWait = kDay / 2;
constexpr int kMostDoublings = 4;
constexpr int kTenth = 10;
constexpr mode_t kMode = 0600;
constexpr std::string_view kEnd = "-----END CERTIFICATE-----\n";
constexpr const char* kUnreachableMark = "certificate_authority";

std::string fileOf(const CertificateInUse& one, const char* ending) {
  return domainFile(one.account.c_str(), one.name.c_str(), ending);
}

std::string recordOf(const CertificateInUse& one, const std::string& certificate, long long now) {
  return joined("certificate=", fingerprintOf(certificate), "\ndate=", std::to_string(now), "\nnames=", one.wanted,
                "\n");
}

/// The one answer to one request.
std::string askOnce(std::string request, ConfigFile& found) {
  std::string error = kNoAnswer;
  askCertificateHelper({std::move(request)}, [&](std::size_t, const ConfigFile& answer) {
    found.fill(&answer);
    error = answer.isValue("result", "done") ? "" : printable(answer.getOrEmpty("error"));
  });
  return error;
}

}  // namespace

bool isDue(const CertificateInUse& one, long long now) {
  if (one.wanted.empty() || !one.isOurs) return false;
  if (one.isUnknown) return false;
  if (!one.isThere || !one.error.empty()) return true;
  if (one.issuedNames != one.wanted) return true;
  const int days = sys_conf->letsencrypt_renewal_days;
  return (days > 0 && now - one.from >= days * kDay) || (one.until - now) * kTenth < one.until - one.from;
}

long long waitAfter(int failures) {
  return std::min(kFirstWait << std::clamp(failures - 1, 0, kMostDoublings), kWeek);
}

void inFairTurns(const std::vector<const CertificateInUse*>& all, std::chrono::steady_clock::duration share,
                 const std::function<bool(const CertificateInUse&, std::chrono::steady_clock::duration& took)>& ask) {
  std::map<std::string, Clock::duration> used;
  std::vector<const CertificateInUse*> later;
  for (const CertificateInUse* one : all) {
    Clock::duration& time = used[one->account];
    Clock::duration took{};
    if (time >= share) {
      later.push_back(one);
    } else if (!ask(*one, took)) {
      return;
    }
    time += took;
  }
  Clock::duration took{};
  for (const CertificateInUse* one : later) {
    if (!ask(*one, took)) return;
  }
}

int Renewal::run(std::vector<const CertificateInUse*> due, bool isOrdered) {
  std::erase_if(due, [&](const CertificateInUse* one) { return !mayAsk(*one, isOrdered); });
  if (due.empty()) return 1;
  const std::string why = client_.prepare();
  if (!why.empty()) {
    unreachable(why);
    return 1;
  }
  // What is served now comes before what never was: a site that does not answer must not use up the time of those.
  std::stable_sort(due.begin(), due.end(), [](const auto* a, const auto* b) {
    return std::pair(!a->isThere, a->until) < std::pair(!b->isThere, b->until);
  });
  const auto start = Clock::now();
  int count = 0;
  bool isOver = false;
  inFairTurns(due, kMostOfAnAccount, [&](const CertificateInUse& one, Clock::duration& took) {
    atSafePoint();
    const auto begin = Clock::now();
    isOver = count++ >= kMostAtATime || begin - start >= kMostTime;
    if (isOver || runFlags.halt || ask(one) == Signing::unreachable) return false;
    if (issued_.size() >= kMostTogether) place();
    took = Clock::now() - begin;
    return true;
  });
  place();
  return isOver ? 0 : 1;
}

bool Renewal::mayAsk(const CertificateInUse& one, bool isOrdered) {
  CertificateNote note = notes_.get(one.name);
  if (!isOrdered && note.next > now_) return false;
  const int most = sys_conf->letsencrypt_max_requests_per_week;
  if (most <= 0 || static_cast<int>(note.asked.size()) < most) return true;
  const long long next = note.asked.front() + kWeek;
  // It is said once, and tried again when there is room.
  if (note.next < next) told_.append(joined(one.label(), ": asked for ", std::to_string(most), " times this week\n"));
  note.next = next;
  notes_.put(one.name, note);
  return false;
}

Signing Renewal::ask(const CertificateInUse& one) {
  ConfigFile order(nullptr);
  std::string why = askOnce(certificateRequest("order", one.wanted), order);
  if (!why.empty()) {
    failed(one, why);
    return Signing::refused;
  }
  CertificateNote note = notes_.get(one.name);
  note.asked.push_back(now_);
  notes_.put(one.name, note);
  // What is killed from here on has asked.
  static_cast<void>(notes_.write());
  std::string pem;
  Signing outcome = client_.sign(order.getOrEmpty("request"), pem, why);
  if (outcome == Signing::unreachable) {
    note.asked.pop_back();
    notes_.put(one.name, note);
    unreachable(why);
    return outcome;
  }
  const std::string key = order.getOrEmpty("key");
  if (outcome == Signing::done) why = whyNot(one, key, pem);
  if (!why.empty()) {
    failed(one, why);
    return Signing::refused;
  }
  const std::size_t end = pem.find(kEnd) + kEnd.size();
  Issued issued{&one, pem.substr(0, end), pem.substr(end), key, ""};
  issued.record = recordOf(one, issued.certificate, now_);
  issued_.push_back(std::move(issued));
  return Signing::done;
}

/// No domain is to blame: it is told once a day.
void Renewal::unreachable(const std::string& why) {
  if (!isDueAgain(kUnreachableMark, fingerprintOf(why))) return;
  const std::string line = joined("No certificates can be asked for: ", why);
  errorLog("%s", line.c_str());
  told_.append(line).append("\n");
}

std::string Renewal::whyNot(const CertificateInUse& one, const std::string& key, const std::string& pem) const {
  std::string request = certificateRequest("pem", joined(pem, key));
  addPair(request, "names", one.wanted);
  ConfigFile answer(nullptr);
  return askOnce(std::move(request), answer);
}

void Renewal::failed(const CertificateInUse& one, const std::string& why) {
  CertificateNote note = notes_.get(one.name);
  note.next = now_ + waitAfter(++note.failures);
  notes_.put(one.name, note);
  static_cast<void>(notes_.write());
  errorLog("%s: no certificate: %s", one.label().c_str(), why.c_str());
  told_.append(joined(one.label(), ": no certificate, attempt ", std::to_string(note.failures), ": ", why, "\n"));
}

void Renewal::offer(Rewrite& rewrite, const Issued& issued) const {
  const struct {
    const char* ending;
    const std::string& text;
  } files[] = {
      {"key", issued.key}, {"cert", issued.certificate}, {"cacert", issued.chain}, {kIssuedEnding, issued.record}};
  for (const auto& [ending, text] : files) {
    rewrite.offer({{issued.of->account, issued.of->name}, fileOf(*issued.of, ending), text, idsOf(kPanelUser), kMode});
  }
}

/// All of a domain or nothing; then the web servers' configuration is queued.
void Renewal::place() {
  if (issued_.empty()) return;
  const std::vector<Issued> all = std::exchange(issued_, {});
  Rewrite rewrite({.name = "certificates", .words = "certificates", .followUp = {"rewrite", "httpd"}});
  int done = rewrite.begin();
  for (const Issued& one : all) {
    if (done) offer(rewrite, one);
  }
  done = done && rewrite.finish();
  for (const Issued& one : all) {
    const std::string* text = done ? rewrite.present(fileOf(*one.of, kIssuedEnding)) : nullptr;
    if (text != nullptr && *text == one.record) {
      succeeded(*one.of);
    } else {
      failed(*one.of, joined("it cannot be put in place: ", printable(rewrite.result.view())));
    }
  }
}

void Renewal::succeeded(const CertificateInUse& one) {
  renewed_.push_back(&one);
  CertificateNote note = notes_.get(one.name);
  note.failures = 0;
  note.next = 0;
  note.told = 0;
  notes_.put(one.name, note);
  static_cast<void>(notes_.write());
  systemLog("%s: certificate renewed", one.label().c_str());
  if (!sys_conf->letsencrypt_renewal_success_notice) return;
  ListFile users(nullptr);
  users.addElement(one.account.c_str());
  std::string names = one.wanted;
  std::replace(names.begin(), names.end(), ':', '\n');
  Ticket ticket;
  static_cast<void>(ticket.messageUsers(joined("Certificate renewed: ", one.name).c_str(),
                                        joined("There is a new certificate for:\n\n", names, "\n").c_str(), &users));
}

bool Renewal::wasRenewed(const CertificateInUse& one) const {
  return std::find(renewed_.begin(), renewed_.end(), &one) != renewed_.end();
}

}  // namespace zvtaskq
