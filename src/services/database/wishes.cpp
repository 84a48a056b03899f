#include "services/database/wishes.h"

#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr const char* kWishesFile = "database_wishes";
constexpr const char* kKind = "wish";
constexpr const char* kStay = "stay";

const char* nameOf(DatabaseWish wish) {
  return wish == DatabaseWish::lock ? "lock" : "unlock";
}

int readWishes(PanelRecord& wishes) {
  if (!hasDatabaseWishes() || wishes.readFile()) return 1;
  errorLog("Unable to read what waits for the database server: %s", wishes.result.orEmpty());
  return 0;
}

std::string encoded(DatabaseWish wish, const ListFile* stay) {
  std::string record;
  addPair(record, kKind, nameOf(wish));
  for (int i = 0; stay != nullptr && i < stay->size(); ++i) {
    addPair(record, joined(kStay, std::to_string(i)), stay->getElementAt(i));
  }
  return record;
}

}  // namespace

bool hasDatabaseWishes() {
  const AsRoot root;
  struct stat what {};
  return sys::lstat(stateFile(kWishesFile).c_str(), what) == 0;
}

int listDatabaseWishes(std::vector<std::string>& accounts) {
  PanelRecord wishes(stateFile(kWishesFile));
  if (!readWishes(wishes)) return 0;
  for (long long i = 0; i < wishes.size(); ++i) accounts.emplace_back(wishes.getNameAt(i));
  return 1;
}

DatabaseWish readDatabaseWish(const char* account, ListFile& stay) {
  PanelRecord wishes(stateFile(kWishesFile));
  if (!readWishes(wishes)) return DatabaseWish::none;
  ConfigFile wish(nullptr);
  wish.fillFromPost(wishes.getValue(account));
  if (wish.isValue(kKind, nameOf(DatabaseWish::lock))) return DatabaseWish::lock;
  if (!wish.isValue(kKind, nameOf(DatabaseWish::unlock))) return DatabaseWish::none;
  for (long long i = 0; i < wish.size(); ++i) {
    if (std::string_view(wish.getNameAt(i)).starts_with(kStay)) stay.addElement(wish.getValueAt(i));
  }
  return DatabaseWish::unlock;
}

int setDatabaseWish(const char* account, DatabaseWish wish, const ListFile* stay) {
  if (wish == DatabaseWish::none && !hasDatabaseWishes()) return 1;
  openStateFolder();
  PanelRecord wishes(stateFile(kWishesFile));
  const RecordLock lock(wishes);
  if (!readWishes(wishes)) return 0;
  if (wish == DatabaseWish::none) {
    wishes.deleteParam(account);
  } else {
    wishes.setParam(account, encoded(wish, stay).c_str());
  }
  if (wishes.size() == 0 ? wishes.removeFile() : wishes.writeFile()) return 1;
  errorLog("Unable to note what waits for the database server: %s", wishes.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
