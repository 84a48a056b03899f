#include <string_view>
#include <vector>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/sys/identity.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/text/split.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/placed.h"

namespace zvtaskq {

namespace {

constexpr mode_t kWritable = 022;
constexpr mode_t kAny = 077;
/// A folder of the panel's: others go through it, but see nothing of what is in it.
constexpr mode_t kHidden = 066;
constexpr mode_t kAdminMode = 01731;
constexpr mode_t kFolder = S_IFDIR | 0755;
constexpr mode_t kOwnFolder = S_IFDIR | 0711;

/// What stands in share/templates, joined by colons (see cmake/stock_templates.cmake).
constexpr std::string_view kStockTemplates = ZVTASKQ_STOCK_TEMPLATES;

/// A path below a folder that a setting names; empty when it names none.
std::string in(const Text& folder, std::string path) {
  return folder.isEmpty() ? "" : std::move(path);
}

std::vector<Placed> panelPlaces() {
  const Config& conf = *sys_conf;
  const std::string home = joined(conf.serverpath);
  std::vector<Placed> places = {
      {joined(conf.getFilename()), kPanelUser, 0600, kWritable},
      {home, "root", kFolder, kWritable},
      {home + "/zvtaskq", "root", 0755, kWritable},
      {home + "/scripts", "root", kFolder, kWritable},
      {home + "/scripts/custom", "root", kFolder, kWritable, true},
      {home + "/libexec", "root", kFolder, kWritable},
      {joined(conf.templates), kPanelUser, kFolder, kWritable},
      {in(conf.templates, joined(conf.templates, "/custom")), kPanelUser, kFolder, kWritable, true},
      {joined(conf.userdata), kPanelUser, kOwnFolder, kHidden},
      {in(conf.admindir, stateFile("")), kPanelUser, S_IFDIR | 0700, kAny, true},
      {joined(conf.ticketsdir), kPanelUser, kOwnFolder, kHidden},
      {joined(conf.logdir), kPanelUser, kOwnFolder, kWritable},
      {joined(conf.emailvirtual), "mail", kFolder, 02},
      {in(conf.admindir, adminFile("admin.conf")), "nobody", 0600, kAny},
      {in(conf.emailvirtual, domainOwnersFile()), "mail", 0644, 02},
  };
  for (const char* list : {"admin.list", "reseller.list", "services.status", "ip.list"}) {
    places.push_back({in(conf.admindir, adminFile(list)), kPanelUser, 0600, kAny});
  }
  places.push_back({joined(conf.taskqueue), kPanelUser, 0600, kWritable, true});
  if (conf.mysql) places.push_back({joined(conf.mysqlconf), kPanelUser, 0600, kAny});
  // What no setting names is nowhere.
  std::erase_if(places, [](const Placed& one) { return one.path.empty(); });
  return places;
}

/// Everybody may make entries in it, and nobody may touch those of others.
void checkAdminFolder(Issues& issues) {
  const std::string path = joined(sys_conf->admindir);
  struct stat what {};
  const AsRoot root;
  if (sys::lstat(path.c_str(), what) == 0 && (what.st_mode & 07777) != kAdminMode) {
    issues.add(Concern::files, joined(path, " has mode ", octal(what.st_mode)), joined("call chmod 1731 ", path));
    return;
  }
  checkPlaced({path, kPanelUser, S_IFDIR | kAdminMode, 0}, Concern::files, issues);
}

}  // namespace

void checkPanelFiles(Issues& issues) {
  for (const Placed& place : panelPlaces()) checkPlaced(place, Concern::files, issues);
  checkAdminFolder(issues);
}

void checkTemplates(Issues& issues) {
  const AsRoot root;
  for (const std::string_view name : wordsIn(kStockTemplates, ':')) {
    const std::string path = joined(sys_conf->templates, "/", name);
    struct stat what {};
    if (::stat(path.c_str(), &what) == 0 && S_ISREG(what.st_mode) && what.st_size > 0) continue;
    issues.add(Concern::templates, joined(path, " is missing or empty"),
               "install the panel's package once more; changes of your own belong into the folder custom beside it");
  }
}

}  // namespace zvtaskq
