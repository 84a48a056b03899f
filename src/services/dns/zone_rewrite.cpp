#include "services/dns/zone_rewrite.h"

#include <ctime>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "services/dns/cluster.h"
#include "services/dns/dkim_keys.h"
#include "services/dns/zone_data.h"
#include "services/dns/zone_files.h"
#include "services/dns/zone_plan.h"
#include "services/dns/zone_serial.h"
#include "services/dns/zone_text.h"

namespace zvtaskq {

namespace {

class ZoneRewrite {
 public:
  ZoneRewrite(const ZoneOrder& order, Text& result)
      : order_(order), result_(result), rewrite_(zonePlan(order.domain == nullptr)) {}

  int run() {
    if (!rewrite_.begin()) return fail(result_, rewrite_.result);
    if (!template_.read(result_) || !data_.read(result_)) return 0;
    gather();
    if (!problem_.isNull()) return fail(result_, problem_);
    keepOwned();
    if (!rewrite_.finish()) return fail(result_, rewrite_.result);
    for (const std::string& path : rewrite_.removed()) removeSigned(path);
    return 1;
  }
  bool hasQueuedReload() const { return rewrite_.hasChanged(); }

 private:
  void gather() {
    const ZoneSink sink{
        [&](const ZoneWish& wish) { take(wish); },
        [&](const std::string& account, const std::string& domain, const std::string& field, const std::string& why) {
          rewrite_.refuse({account, domain}, field, why);
        },
        [&](const std::string& account, const std::string& domain) {
          if (domain.empty()) rewrite_.keepAccount(account);
          if (!domain.empty()) rewrite_.keep({account, domain});
        }};
    if (order_.domain == nullptr) return data_.tellAll(sink);
    if (data_.owners().existsParam(order_.domain)) data_.tell(order_.domain, sink);
    // What is listed of the domain for somebody who does not have it any more goes.
    for (const auto& [path, entry] : rewrite_.list().entries()) {
      const bool isOwners = data_.owners().isValue(order_.domain, entry.origin.account.c_str());
      if (entry.origin.part == order_.domain && !isOwners) rewrite_.drop(entry.origin);
    }
  }

  /// What is listed and was not met, though somebody has it, or another server of the cluster may.
  void keepOwned() {
    if (order_.domain != nullptr) return;
    for (const auto& [path, entry] : rewrite_.list().entries()) {
      const bool isOwned = data_.owners().isValue(entry.origin.part.c_str(), entry.origin.account.c_str());
      const bool isNobodys = !data_.owners().existsParam(entry.origin.part.c_str());
      if (!rewrite_.isNamed(entry.origin) && (isOwned || (isNobodys && sys_conf->cluster))) {
        rewrite_.keep(entry.origin);
      }
    }
  }

  void take(const ZoneWish& wish) {
    const Origin origin{wish.account, wish.domain};
    const std::string path = form_.fileOf(wish.zone);
    const std::string* now = rewrite_.present(path);
    PresentZone present;
    Text why;
    if (now != nullptr && !readPresentZone(*now, wish.zone, present, why)) {
      return rewrite_.refuse(origin, path, trimmedWords(why));
    }
    std::string text;
    if (!compose(wish, present, present.serial, origin, text)) return;
    if (now == nullptr || order_.raisesSerials || text != *now) {
      const unsigned long serial = serialAfter(present.serial, std::time(nullptr));
      if (!compose(wish, present, serial, origin, text)) return;
    }
    rewrite_.offer(form_.candidate(origin, wish.zone, std::move(text)));
  }

  bool compose(const ZoneWish& wish, const PresentZone& present, unsigned long serial, const Origin& origin,
               std::string& text) {
    ZoneValues values = wish.values;
    if (sys_conf->dkim && wish.zone == wish.domain) values[ZoneToken::dkim] = dkimRecords(wish.domain);
    values[ZoneToken::serial] = {std::to_string(serial)};
    std::string filled;
    std::vector<RefusedRecord> refused;
    Text why;
    if (!template_.fill(values, filled, why) ||
        !composeZone(wish.zone, filled, present, *sys_conf, text, refused, why)) {
      // The template is the same for all.
      if (problem_.isNull()) problem_ = trimmedWords(why).c_str();
      return false;
    }
    for (const RefusedRecord& one : refused) rewrite_.refuse(origin, one.record, one.why);
    return refused.empty();
  }

  /// What the name server made of a zone that is gone.
  static void removeSigned(const std::string& path) {
    for (const char* ending : {".signed", ".signed.jnl", ".jbk", ".jnl"}) {
      static_cast<void>(sys::unlink(joined(path, ending).c_str()));
    }
  }

  static std::string trimmedWords(const Text& words) {
    std::string text(words.view());
    const std::size_t end = text.find("<br>");
    return text.substr(0, end);
  }

  const ZoneOrder& order_;
  Text& result_;
  Rewrite rewrite_;
  ZoneTemplate template_;
  ZoneData data_;
  Text problem_;
  const ZoneForm form_{true};
};

}  // namespace

int rewriteZones(const ZoneOrder& order, Text& result) {
  if (isDemo()) return 1;
  const AsRoot root;
  if (!hasZoneFolder()) return fail(result, "There is no folder for zones, ", zoneFolder());
  int done = 0;
  bool hasQueued = false;
  {
    ZoneRewrite rewrite(order, result);
    done = rewrite.run();
    hasQueued = rewrite.hasQueuedReload();
  }
  // A rewrite of its own: it lists what the first has put in place.
  if (done) done = writeCatalog(result);
  if (!hasQueued) queueTask("named", "reload");
  return done;
}

}  // namespace zvtaskq
