#include "services/dns/zone_rewrite.h"

#include <ctime>
#include <set>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "services/dns/cluster.h"
#include "services/dns/dkim_keys.h"
#include "services/dns/gone_zones.h"
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
      : order_(order), result_(result), rewrite_(form_.plan(order.domain == nullptr)) {}

  int run() {
    if (!rewrite_.begin()) return fail(result_, rewrite_.result);
    if (!template_.read(result_) || !data_.read(result_)) return 0;
    gather();
    if (!problem_.isNull()) return fail(result_, problem_);
    settleListed();
    if (!rewrite_.finish()) return fail(result_, rewrite_.result);
    for (const std::string& path : rewrite_.removed()) removeSigned(path);
    gone_.write();
    return 1;
  }
  bool hasQueuedReload() const { return rewrite_.hasChanged(); }

 private:
  void gather() {
    const ZoneSink sink{
        [&](const ZoneWish& wish) {
          // Taken once for all that is done with a zone.
          const AsRoot root;
          take(wish);
        },
        [&](const std::string& account, const std::string& domain, const std::string& field, const std::string& why) {
          rewrite_.refuse({account, domain}, field, why);
        },
        [&](const std::string& account, const std::string& domain) {
          if (domain.empty()) rewrite_.keepAccount(account);
          if (!domain.empty()) rewrite_.keep({account, domain});
        }};
    if (order_.domain == nullptr) return data_.tellAll(sink);
    bool isKnown = data_.owners().existsParam(order_.domain) != 0;
    if (isKnown) data_.tell(order_.domain, sink);
    // What is listed of the domain for somebody who does not have it any more goes.
    for (const auto& [path, entry] : rewrite_.list().entries()) {
      const bool isOwners = data_.owners().isValue(order_.domain, entry.origin.account.c_str());
      if (entry.origin.part != order_.domain || isOwners) continue;
      rewrite_.drop(entry.origin);
      isKnown = true;
    }
    if (!isKnown) problem_ = joined("nobody has the domain ", printable(order_.domain)).c_str();
  }

  /// What is listed and was not met, though somebody has it, or another server of the cluster may. A table of owners
  /// that was emptied does not take away the zones of those whose records are still there.
  bool isToStay(const Origin& origin) const {
    const char* domain = origin.part.c_str();
    if (data_.owners().existsParam(domain)) return data_.owners().isValue(domain, origin.account.c_str()) != 0;
    return sys_conf->cluster || pathExists(domainFile(origin.account.c_str(), domain, "conf").c_str());
  }

  void settleListed() {
    for (const auto& [path, entry] : rewrite_.list().entries()) {
      if (met_.contains(path)) continue;
      const bool isMet = rewrite_.isNamed(entry.origin);
      const bool stays = !isMet && (order_.domain != nullptr || isToStay(entry.origin));
      if (stays && order_.domain == nullptr) rewrite_.keep(entry.origin);
      if (!stays) noteSerial(path);
    }
  }

  /// Of a zone that may be gone in a moment.
  void noteSerial(const std::string& path) {
    const std::string* text = rewrite_.present(path);
    const std::string zone = zoneIn(path);
    PresentZone present;
    Text ignored;
    if (text != nullptr && readPresentZone(*text, zone, present, ignored)) gone_.note(zone, present.serial);
  }

  void take(const ZoneWish& wish) {
    const Origin origin{wish.account, wish.domain};
    const std::string path = form_.fileOf(wish.zone);
    const std::string* now = rewrite_.present(path);
    PresentZone present;
    Text why;
    met_.insert(path);
    if (now != nullptr && !readPresentZone(*now, wish.zone, present, why)) {
      return rewrite_.refuse(origin, path, firstOf(why));
    }
    if (now == nullptr) present.serial = gone_.serialOf(wish.zone);
    ZoneValues values = wish.values;
    values[ZoneToken::serial] = {std::string(kSerialPlace)};
    if (sys_conf->dkim && wish.zone == wish.domain) values[ZoneToken::dkim] = dkimRecords(wish.domain);
    std::string unnumbered;
    if (!compose(wish, values, present, unnumbered)) return;
    std::string text = withSerial(unnumbered, present.serial);
    if (now == nullptr || order_.raisesSerials || text != *now) {
      text = withSerial(unnumbered, serialAfter(present.serial, std::time(nullptr)));
    }
    rewrite_.offer(form_.candidate(origin, wish.zone, std::move(text)));
  }

  /// The zone's text, but for its serial.
  bool compose(const ZoneWish& wish, const ZoneValues& values, const PresentZone& present, std::string& text) {
    const Origin origin{wish.account, wish.domain};
    std::string filled;
    std::vector<RefusedRecord> refused;
    Text why;
    if (!template_.fill(values, filled, why)) {
      // The template is the same for all.
      if (problem_.isNull()) problem_ = firstOf(why).c_str();
      return false;
    }
    if (!composeZone(wish.zone, filled, present, *sys_conf, text, refused, why)) {
      refused.push_back({"what the template makes of it", firstOf(why)});
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

  /// The first message of a result.
  static std::string firstOf(const Text& words) {
    const std::string text(words.view());
    return text.substr(0, text.find("<br>"));
  }

  const ZoneOrder& order_;
  Text& result_;
  const ZoneForm form_{true};
  Rewrite rewrite_;
  ZoneTemplate template_;
  ZoneData data_;
  Text problem_;
  GoneZones gone_;
  /// The files of the zones that there are.
  std::set<std::string> met_;
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
