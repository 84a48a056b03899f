#include "tally/counts/account_cache.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "account/model/account_name.h"
#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/panel/task_queue.h"
#include "core/process/child.h"
#include "core/record/panel_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/tree/folder_reader.h"
#include "tally/counts/list_record.h"

namespace zvtaskq {

namespace {

constexpr const char* kCache = "show_all_users.cache";
constexpr const char* kCloudCache = "cloud.cache";
constexpr const char* kSelect = "select";
/// Milliseconds that whoever asked for the list has to finish what it was doing.
constexpr int kPause = 3000;

/// One rebuild, in the process that does it.
class Rebuild {
 public:
  Rebuild(const Config& conf, const ListFile* accounts, int createdUsers, const ConfigFile* selection)
      : conf_(conf), wanted_(nullptr), isForCreated_(createdUsers != 0) {
    if (accounts != nullptr) wanted_.fill(accounts);
    for (int i = 0; selection != nullptr; ++i) {
      const char* name = selection->getValue(joined(kSelect, std::to_string(i)).c_str());
      if (name == nullptr) break;
      wanted_.addElement(name);
    }
  }

  void run() {
    sleepSafely(kPause);
    const FailScope scope("account_cache");
    const std::string path = adminFile(kCache);
    const std::string own = stateFile("show_all_users.lock");
    const Descriptor state = openStateFolder();
    const AsUser panel(kPanelUser);
    FileLock lock;
    char reason[kLockReasonSize] = "";
    if (lock.takeForLife(path.c_str(), own.c_str(), kLockMaximumAge, "dumpShowAllUsersCache", reason)) {
      write(path);
    } else {
      errorLog("Unable to get lock on %s: %s.  Will try on the next task.queue", path.c_str(), reason);
      queueAgain();
    }
  }

 private:
  void queueAgain() const {
    ConfigFile line(nullptr);
    if (isForCreated_) {
      line.setParam("add_created_users", 1);
      line.fill_list(kSelect, &wanted_);
    }
    if (pushOnTaskQueue("cache", "showallusers", nullptr, &line)) return;
    errorLog("Unable to queue action=cache&value=showallusers: %s", getSysResult());
  }

  void write(const std::string& path) {
    ListFile there(nullptr);
    if (!listFolders(there)) {
      errorLog("Error writing cache %s: %s", path.c_str(), std::strerror(errno));
      return;
    }
    PanelRecord cache(path);
    // The lock is held.
    cache.useLock = false;
    const bool isPartial = wanted_.size() > 0 && cache.readFile();
    if (isPartial) dropGone(cache, there);
    const ListFile& listed = isPartial ? wanted_ : there;
    for (int i = 0; i < listed.size(); ++i) list(listed.getElementAt(i), there, cache);
    put(cache, path);
    if (conf_.cloud_cache != 0) put(cache, adminFile(kCloudCache));
  }

  static int listFolders(ListFile& names) {
    FolderReader folder(sys_conf->userdata);
    while (const dirent* entry = folder ? folder.next() : nullptr) {
      if (folder.isFolder(*entry)) names.addElement(entry->d_name);
    }
    return folder && !folder.failed() ? 1 : 0;
  }

  static void dropGone(ConfigFile& cache, const ListFile& there) {
    for (long long i = cache.size() - 1; i >= 0; --i) {
      if (!there.existElement(cache.getNameAt(i))) cache.deleteParamAt(i);
    }
    cache.shift_down_and_count();
  }

  void list(const char* account, const ListFile& there, ConfigFile& cache) {
    if (!isAccountName(account, &conf_)) {
      errorLog("Bad username: %s (check max_username_length=%d)", account, conf_.max_username_length);
    } else if (there.existElement(account) && makeListRecord(account, record_)) {
      cache.setParam(account, record_.c_str());
    }
  }

  static void put(ConfigFile& cache, const std::string& path) {
    if (!cache.writeFile(path.c_str())) errorLog("Error writing cache %s: %s", path.c_str(), cache.result.orEmpty());
  }

  const Config& conf_;
  ListFile wanted_;
  bool isForCreated_;
  std::string record_;
};

}  // namespace

// The connection is closed with everything else that the new process was born with.
int dumpShowAllUsersCache(const Config* conf, const ListFile* accounts, int createdUsers, int /*connection*/,
                          const ConfigFile* selection) {
  if (isDemo()) return 1;
  Rebuild rebuild(*conf, accounts, createdUsers, selection);
  return runDetached(
      [](void* work) {
        static_cast<Rebuild*>(work)->run();
        return 0;
      },
      &rebuild);
}

}  // namespace zvtaskq
