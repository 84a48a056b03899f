#include "tally/logs/old_archives.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "account/model/user_folder.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "tally/logs/month_archive.h"
#include "tally/logs/rotation.h"

namespace zvtaskq {

void get_logs_to_delete(int directory, const ListFile& names, ListFile& out, int keep) {
  const int surplus = names.size() - std::max(keep, 0);
  if (surplus <= 0) return;
  struct Aged {
    std::pair<time_t, long> time;
    const char* name;
  };
  std::vector<Aged> files;
  for (int i = 0; i < names.size(); ++i) {
    const char* name = names.getElementAt(i);
    struct stat what {};
    if (name == nullptr || sys::lstatAt(directory, name, what) != 0) return;
    files.push_back({{what.st_mtim.tv_sec, what.st_mtim.tv_nsec}, name});
  }
  std::stable_sort(files.begin(), files.end(), [](const Aged& a, const Aged& b) { return a.time < b.time; });
  for (int i = 0; i < surplus; ++i) out.addElement(files[static_cast<std::size_t>(i)].name);
}

void get_logs_to_delete(const char* directory, const ListFile& names, ListFile& out, int keep) {
  const Descriptor folder = openGuardedFolder(directory);
  if (folder) get_logs_to_delete(folder.get(), names, out, keep);
}

void deleteOldFilesFrom(const OpenedFolder& folder, const char* user, const Config* conf) {
  const AsUser account(user);
  if (!account.taken()) return;
  std::vector<std::string> found;
  if (!namesIn(folder.folder.get(), found)) return;
  ListFile archives(nullptr), old(nullptr);
  for (const std::string& name : found) {
    if (isMonthArchiveName(name)) archives.addElement(name.c_str());
  }
  get_logs_to_delete(folder.folder.get(), archives, old, logs_to_keep(conf));
  for (int i = 0; i < old.size(); ++i) {
    const char* name = old.getElementAt(i);
    if (sys::unlinkat(folder.folder.get(), name, 0) == 0) continue;
    errorLog("Error while deleteing %s : %s", joined(folder.path, "/", name).c_str(), std::strerror(errno));
  }
}

}  // namespace zvtaskq
