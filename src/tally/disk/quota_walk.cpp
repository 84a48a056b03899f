#include "tally/disk/quota_walk.h"

#include <pwd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tables/linked_files.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

/// The system counts in blocks of 512 bytes.
constexpr double kBlocksEach = 2;

struct Owned {
  double blocks = 0;
  double inodes = 0;
};

class Count {
 public:
  int walk(const std::string& folder) {
    struct stat top {};
    if (sys::lstat(folder.c_str(), top) != 0) return 0;
    return walkTree(folder.c_str(), [&](const TreeEntry& entry) { return visit(entry, top.st_dev); });
  }

  void enter(SpaceByUser& used) {
    ::setpwent();
    while (const passwd* user = ::getpwent()) {
      const auto found = owned_.find(user->pw_uid);
      if (found == owned_.end()) continue;
      used[user->pw_name] = {static_cast<unsigned long long>(std::ceil(found->second.blocks / kBlocksEach)),
                             static_cast<unsigned long long>(std::llround(found->second.inodes))};
      // Two names of one user are one user.
      owned_.erase(found);
    }
    ::endpwent();
  }

 private:
  int visit(const TreeEntry& entry, dev_t partition) {
    if (entry.leaving) return 1;
    if (entry.what.st_dev != partition) return kPassBy;
    const double share = links_.share(entry.what);
    if (share == 0) return kPassBy;
    Owned& owner = owned_[entry.what.st_uid];
    owner.blocks += share * static_cast<double>(entry.what.st_blocks);
    owner.inodes += share;
    return 1;
  }

  std::unordered_map<uid_t, Owned> owned_;
  LinkedFiles links_;
};

}  // namespace

int countByOwner(const std::vector<std::string>& folders, SpaceByUser& used) {
  const AsRoot root;
  Count count;
  int whole = 1;
  for (const std::string& folder : folders) {
    if (count.walk(folder)) continue;
    errorLog("Not all of %s could be counted: %s", folder.c_str(), std::strerror(errno));
    whole = 0;
  }
  count.enter(used);
  return whole;
}

int countHomes(const std::vector<std::string>& accounts, SpaceByUser& used) {
  std::vector<std::string> homes;
  for (const std::string& account : accounts) {
    const passwd* user = ::getpwnam(account.c_str());
    if (user != nullptr && *user->pw_dir == '/') homes.emplace_back(user->pw_dir);
  }
  SpaceByUser all;
  const int whole = countByOwner(homes, all);
  for (const std::string& account : accounts) {
    const auto found = all.find(account);
    if (found != all.end()) used.insert(*found);
  }
  return whole;
}

}  // namespace zvtaskq
