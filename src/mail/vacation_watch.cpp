#include "mail/vacation_watch.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/record/config_file.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "mail/email.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr const char* kNoDomain = "majordomo";

/// The folders that may be mail domains. 0 when they cannot be listed.
int listDomains(const char* path, std::vector<std::string>& names) {
  const AsUser mail(kMailUser);
  FolderReader folder(path);
  if (!folder) return 0;
  while (const dirent* entry = folder.next()) {
    if (isMailName(entry->d_name) && std::strcmp(entry->d_name, kNoDomain) != 0 && folder.isFolder(*entry)) {
      names.emplace_back(entry->d_name);
    }
  }
  return 1;
}

/// Whether the domain has vacations at all; most have none.
bool hasVacations(const char* domain) {
  const AsUser mail(kMailUser);
  if (openMailPath(joined(domain, "/vacation.conf"), O_PATH)) return true;
  if (errno != ENOENT) errorLog("Can't read %s: %s", vacationFile(domain).c_str(), std::strerror(errno));
  return false;
}

struct WindowEdge {
  const char* year;
  const char* month;
  const char* day;
  const char* time;
};
constexpr WindowEdge kStart{"startyear", "startmonth", "startday", "starttime"};
constexpr WindowEdge kEnd{"endyear", "endmonth", "endday", "endtime"};

std::optional<long long> timeOf(const ConfigFile& window, const WindowEdge& edge) {
  return getTimeFrom(window.getValue(edge.year), window.getValue(edge.month), window.getValue(edge.day),
                     window.getValue(edge.time));
}

}  // namespace

VacationStep vacationStep(bool active, long long now, long long start, long long end) {
  if (now > start && now < end) return active ? VacationStep::none : VacationStep::activate;
  if (!active) return VacationStep::none;
  return now < end ? VacationStep::disable : VacationStep::remove;
}

VacationWatch::VacationWatch(const Config* conf, const char* domain) : conf_(conf) {
  MailRecord owners(domainOwnersFile().c_str());
  owners.set_caller_location("VacationWatch::creation", 0);
  if (!owners.readFile()) {
    errorLog("Can't read %s", owners.getFilename());
    return;
  }
  owners.trimValueFront();
  if (domain == nullptr) {
    checkAll(owners);
  } else if (owners.existsParam(domain) && isMailName(domain)) {
    checkDomain(domain, owners.getValue(domain));
  }
}

void VacationWatch::checkAll(const ConfigFile& owners) const {
  std::vector<std::string> domains;
  if (!listDomains(conf_->emailvirtual.orEmpty(), domains)) {
    errorLog("Running: Error opening %s directory", conf_->emailvirtual.orEmpty());
    return;
  }
  for (const std::string& domain : domains) {
    if (owners.existsParam(domain.c_str())) checkDomain(domain.c_str(), owners.getValue(domain.c_str()));
  }
}

bool VacationWatch::vacationActive(const char* domain, const char* mailbox) const {
  const AsUser mail(kMailUser);
  const Descriptor folder = openMailPath(joined(domain, "/reply"), O_PATH | O_DIRECTORY);
  struct stat what {};
  return folder && sys::lstatAt(folder.get(), joined(mailbox, kVacationOn).c_str(), what) == 0;
}

VacationStep VacationWatch::stepFor(const char* domain, const char* mailbox, const char* window, long long now) const {
  ConfigFile dates(nullptr);
  dates.fillFromPost(trim(window));
  const std::optional<long long> start = timeOf(dates, kStart), end = timeOf(dates, kEnd);
  if (!isMailName(mailbox) || !start || !end) {
    errorLog("The vacation of %s@%s has no such mailbox, start or end. Leaving it as it is.", mailbox, domain);
    return VacationStep::none;
  }
  const bool active = vacationActive(domain, mailbox);
  debug(2000, "checking %s@%s. active=%d curTime=%d stime=%d etime=%d", mailbox, domain, active, static_cast<int>(now),
        static_cast<int>(*start), static_cast<int>(*end));
  return vacationStep(active, now, *start, *end);
}

void VacationWatch::checkDomain(const char* domain, const char* owner) const {
  if (!hasVacations(domain)) return;
  MailRecord vacations(vacationFile(domain).c_str());
  if (!vacations.readFile()) {
    errorLog("Can't read %s: %s", vacations.getFilename(), vacations.result.orEmpty());
    return;
  }
  const long long now = std::time(nullptr);
  const Email email(owner);
  ListFile over(nullptr);
  over.keepOrder = true;
  for (long long i = 0; i < vacations.size(); ++i) {
    const char* mailbox = vacations.getNameAt(i);
    switch (stepFor(domain, mailbox, vacations.getValueAt(i), now)) {
      case VacationStep::activate:
        email.activateVacation(mailbox, domain);
        break;
      case VacationStep::disable:
        email.disableVacation(mailbox, domain);
        break;
      case VacationStep::remove:
        over.addElement(mailbox);
        break;
      case VacationStep::none:
        break;
    }
  }
  // All at once: one by one, "vacation.conf" would be written anew for every mailbox in it. Somebody may have come back
  // to one of them meanwhile, so each is looked at again under the lock.
  if (over.size() == 0) return;
  email.removeVacations(over, domain, [&](const char* mailbox, const char* window) {
    return stepFor(domain, mailbox, window, std::time(nullptr)) == VacationStep::remove;
  });
}

}  // namespace zvtaskq
