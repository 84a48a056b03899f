#include "services/web/php_pools.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/process/system_tool.h"
#include "core/tree/folder_reader.h"
#include "services/rewrite/ask_server.h"

namespace zvtaskq {

namespace {

constexpr const char* kVersions = "/etc/php";
constexpr const char* kPoolFolder = "/fpm/pool.d";
constexpr const char* kProgram = "/usr/sbin/php-fpm";
constexpr const char* kTemplate = "php_pool.txt";
constexpr const char* kList = "php_pools";
constexpr mode_t kMode = 0640;
constexpr mode_t kListMode = 0600;
/// PHP-FPM closes its standard input before it reads its configuration.
constexpr const char* kScript = "exec \"$0\" -t -y /dev/fd/3 3<&0 </dev/null";
constexpr const char* kServerUsers[] = {"www-data", "nginx", "apache"};
/// Apache reads it when it answers for each account as that account.
constexpr const char* kApacheAsAccounts = "/etc/apache2/mods-enabled/mpm_itk.load";

std::string folderOf(const std::string& version) {
  return joined(kVersions, "/", version, kPoolFolder);
}

/// The version of a pool's file.
std::string versionIn(const std::string& path) {
  const std::string rest = path.substr(std::string_view(kVersions).size() + 1);
  return rest.substr(0, rest.find('/'));
}

const char* serverUser() {
  for (const char* user : kServerUsers) {
    if (idsOf(user).user != kUnknownId) return user;
  }
  return "root";
}

Verdict ask(const std::string& version, const std::string& includes, std::string& words) {
  ChildPlan plan = ChildPlan::program("/bin/sh", {"-c", kScript, kProgram + version});
  plan.identity = kRootIds;
  plan.inputs.push_back("[global]\nerror_log = /dev/null\n" + includes);
  return askServer(std::move(plan), kProgram + version, words);
}

Verdict checkPools(const Trial& trial, std::string& words) {
  std::map<std::string, std::string> includes;
  for (const TrialFile* file : trial.fresh) includes[versionIn(file->path)].append("include = " + file->place + "\n");
  for (const auto& [version, lines] : includes) {
    const Verdict verdict = ask(version, lines, words);
    if (verdict != Verdict::good) return verdict;
  }
  return Verdict::good;
}

}  // namespace

std::vector<std::string> installedPhp() {
  std::vector<std::string> versions;
  FolderReader entries(kVersions);
  if (!entries) return versions;
  while (const dirent* entry = entries.next()) {
    const std::string name = entry->d_name;
    const bool isVersion = name.find_first_not_of("0123456789.") == std::string::npos && name[0] != '.';
    if (isVersion && pathExists(folderOf(name).c_str(), PathKind::folder) && toolExists((kProgram + name).c_str())) {
      versions.push_back(name);
    }
  }
  const auto numberOf = [](const std::string& version) {
    const std::size_t dot = std::min(version.find('.'), version.size());
    return std::pair(std::atoi(version.c_str()), std::atoi(version.c_str() + std::min(dot + 1, version.size())));
  };
  std::sort(versions.begin(), versions.end(), [&](const auto& a, const auto& b) { return numberOf(a) < numberOf(b); });
  return versions;
}

std::vector<std::string> usablePhp() {
  const bool mayAsk = sys_conf->nginx != 0 || pathExists(kApacheAsAccounts);
  return mayAsk ? installedPhp() : std::vector<std::string>();
}

std::string phpSocketOf(const std::string& account, const std::string& version) {
  return joined("/run/php/zorvane-", account, "-", version, ".sock");
}

int PhpPools::read(Text& result) {
  return template_.read(kTemplate, result);
}

RewritePlan PhpPools::plan(bool isWhole) {
  return {.name = "php_pools",
          .words = "PHP pools",
          .check = checkPools,
          .list = {stateFile(kList), kRootIds, kListMode,
                   "# The pools that were made; PHP-FPM reads their folders itself.\n"},
          .judgesAlone = true,
          .isWhole = isWhole,
          .followUp = {"httpd", "restart"}};
}

int PhpPools::candidate(const WebAccount& account, const std::string& version, Candidate& out, Text& result) {
  SiteValues values;
  values[WebToken::user] = {account.name};
  values[WebToken::serverUser] = {sys_conf->nginx != 0 ? serverUser() : account.name};
  values[WebToken::home] = {account.home};
  values[WebToken::socket] = {phpSocketOf(account.name, version)};
  std::string text;
  unsigned flags = kLive | kPhp;
  if (account.phpLimits.openBasedir) flags |= kOpenBasedir;
  if (account.phpLimits.safeMode) flags |= kSafeMode;
  if (!template_.fill(flags, values, text, result)) return 0;
  out = {{account.name, version},
         joined(folderOf(version), "/zorvane-", account.name, ".conf"),
         std::move(text),
         kRootIds,
         kMode,
         joined("# pool ", version, "\n")};
  return 1;
}

}  // namespace zvtaskq
