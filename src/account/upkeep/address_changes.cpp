#include "account/upkeep/address_changes.h"

#include <span>
#include <string_view>
#include <utility>

#include "account/model/addresses.h"
#include "account/upkeep/each_account.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr const char* kPlan = "ip_swap";
constexpr char kBetween = '\t';
/// In the place of an account, for the record of an address.
constexpr const char* kNoAccount = "-";
using Changes = std::span<const AddressChange>;
/// What became of the changes of one file.
enum class Made { yes, no, gone };

std::string lineOf(const AddressChange& change) {
  const std::string& account = change.account;
  return joined(account.empty() ? kNoAccount : account.c_str(), "\t", change.file, "\t", change.key, "\t", change.old,
                "\t", change.now);
}

/// False for a line that none of ours can be.
bool readLine(std::string_view line, AddressChange& change) {
  std::string* const fields[] = {&change.account, &change.file, &change.key, &change.old, &change.now};
  for (std::string* field : fields) {
    const std::size_t end = line.find(kBetween);
    const bool isLast = field == fields[4];
    if ((end == std::string_view::npos) != isLast) return false;
    *field = line.substr(0, end);
    line.remove_prefix(isLast ? line.size() : end + 1);
  }
  if (change.account == kNoAccount) change.account.clear();
  return !change.file.empty();
}

bool isThere(const std::string& path) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  return sys::lstat(path.c_str(), what) == 0;
}

bool replaceIn(ConfigFile& record, Changes changes) {
  bool changed = false;
  for (const AddressChange& change : changes) {
    if (change.old != record.getOrEmpty(change.key.c_str())) continue;
    if (change.now.empty()) {
      record.deleteParam(change.key.c_str());
    } else {
      record.setParam(change.key.c_str(), change.now.c_str());
    }
    changed = true;
  }
  return changed;
}

/// The place of a line in a list that may be in any order; -1 when it is not there.
int placeOf(const ListFile& list, const std::string& line) {
  for (int i = 0; i < list.size(); ++i) {
    if (line == list.getElementAt(i)) return i;
  }
  return -1;
}

bool replaceIn(ListFile& list, Changes changes) {
  bool changed = false;
  for (const AddressChange& change : changes) {
    const int place = placeOf(list, change.old);
    if (place < 0 || placeOf(list, change.now) >= 0) continue;
    list.setElement(change.now.c_str(), place);
    changed = true;
  }
  return changed;
}

template <class File>
Made changeFile(File& file, Changes changes) {
  const RecordLock lock(file);
  if (!file.readFile()) {
    errorLog("%s: %s", file.getFilename(), file.result.orEmpty());
    return Made::gone;
  }
  if (!replaceIn(file, changes)) return Made::yes;
  file.changed = true;
  if (file.writeFile()) return Made::yes;
  errorLog("%s: %s", file.getFilename(), file.result.orEmpty());
  return Made::no;
}

Made changeAccounts(const AddressChange& first, Changes changes) {
  const std::string path = accountFile(first.account.c_str(), first.file.c_str());
  if (!isThere(path)) return Made::gone;
  Made made = Made::no;
  static_cast<void>(forEachAccount(first.account.c_str(), "the swap of addresses", [&](const char*) {
    if (!first.key.empty()) {
      PanelRecord record(path);
      made = changeFile(record, changes);
    } else {
      PanelList list(path);
      list.keepOrder = list.keepComments = true;
      made = changeFile(list, changes);
    }
    return 1;
  }));
  return made;
}

Made changeOne(Changes changes) {
  const AddressChange& first = changes.front();
  if (!first.account.empty()) return changeAccounts(first, changes);
  ConfigFile record(nullptr);
  if (!readAddress(first.file.c_str(), record)) return Made::gone;
  const auto change = [&](ConfigFile& now) { return replaceIn(now, changes); };
  return changeAddress(first.file.c_str(), change) ? Made::yes : Made::no;
}

PanelList planOf() {
  return PanelList(stateFile(kPlan));
}

}  // namespace

void AddressChanges::add(AddressChange change) {
  if (change.old.find(kBetween) != std::string::npos || change.now.find(kBetween) != std::string::npos) {
    errorLog("%s of %s: %s holds a tab, and stays as it is", change.file.c_str(), change.account.c_str(),
             change.key.c_str());
    return;
  }
  changes_.push_back(std::move(change));
}

int AddressChanges::read() {
  changes_.clear();
  const Descriptor folder = openStateFolder();
  PanelList plan = planOf();
  plan.keepOrder = true;
  if (!isThere(plan.getFilename())) return 1;
  if (!plan.readFile()) {
    errorLog("%s: %s", plan.getFilename(), plan.result.orEmpty());
    return 0;
  }
  for (int i = 0; i < plan.size(); ++i) {
    AddressChange change;
    if (readLine(plan.getElementAt(i), change)) {
      changes_.push_back(std::move(change));
    } else {
      errorLog("%s: %.100s is no change", plan.getFilename(), plan.getElementAt(i));
    }
  }
  return 1;
}

int AddressChanges::write() const {
  const Descriptor folder = openStateFolder();
  PanelList plan = planOf();
  plan.keepOrder = true;
  for (const AddressChange& change : changes_) plan.addElement(lineOf(change).c_str());
  plan.changed = true;
  const bool goes = changes_.empty();
  if (goes && !isThere(plan.getFilename())) return 1;
  if (goes ? plan.removeFile() : plan.writeFile()) return 1;
  errorLog("%s: %s", plan.getFilename(), plan.result.orEmpty());
  return 0;
}

int AddressChanges::make() {
  std::vector<AddressChange> left;
  for (std::size_t i = 0; i < changes_.size();) {
    std::size_t end = i + 1;
    const AddressChange& first = changes_[i];
    while (end < changes_.size() && changes_[end].account == first.account && changes_[end].file == first.file) ++end;
    const Changes those(changes_.data() + i, end - i);
    if (changeOne(those) == Made::no) left.insert(left.end(), those.begin(), those.end());
    i = end;
  }
  changes_ = std::move(left);
  return isEmpty() ? 1 : 0;
}

}  // namespace zvtaskq
