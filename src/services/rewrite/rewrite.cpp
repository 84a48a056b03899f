#include "services/rewrite/rewrite.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/files/safe_file.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

/// Seconds that another process is waited for.
constexpr int kWait = 60;
/// More than any account's configuration, or the list of a million.
constexpr std::size_t kLongestFile = 256UL << 20;
constexpr mode_t kPermissions = 07777;

}  // namespace

Rewrite::Rewrite(RewritePlan plan) : plan_(std::move(plan)), journal_(plan_.name), notes_(plan_.name) {}

Rewrite::~Rewrite() = default;

int Rewrite::begin() {
  const AsRoot root;
  if (!journal_.begin(kWait, result)) return 0;
  notes_.read();
  if (plan_.list.path.empty()) return 1;
  const std::string* text = present(plan_.list.path);
  if (!unreadable_.empty()) return fail(result, "Unable to read ", plan_.list.path, ": ", unreadable_);
  if (text != nullptr) list_.read(*text);
  return 1;
}

const std::string* Rewrite::present(const std::string& path) {
  if (path == presentPath_) return isPresent_ ? &presentText_ : nullptr;
  const AsRoot root;
  presentPath_ = path;
  isPresent_ = readPresent(path.c_str());
  return isPresent_ ? &presentText_ : nullptr;
}

bool Rewrite::readPresent(const char* path) {
  presentText_.clear();
  unreadable_.clear();
  const Descriptor file = openRegularFile(path);
  if (!file && errno == ENOENT) return false;
  if (file && sys::fstat(file.get(), presentFile_) == 0) {
    if (!isPanels(presentFile_)) {
      unreadable_ = "it belongs to somebody else";
      return false;
    }
    if (sys::readAll(file.get(), presentText_, kLongestFile)) return true;
  }
  unreadable_ = std::strerror(errno);
  return false;
}

void Rewrite::offer(Candidate candidate) {
  const AsRoot root;
  named_.insert(candidate.origin);
  if (stays(candidate.origin)) return;
  const std::string* now = present(candidate.path);
  const bool isSame = now != nullptr && *now == candidate.text && presentFile_.st_uid == candidate.owner.user &&
                      presentFile_.st_gid == candidate.owner.group &&
                      (presentFile_.st_mode & kPermissions) == candidate.mode;
  const std::string entry = withPlace(candidate.entry, candidate.path);
  const auto listed = list_.entries().find(candidate.path);
  const bool isListed =
      candidate.entry.empty() ||
      (listed != list_.entries().end() && listed->second.origin == candidate.origin && listed->second.text == entry);
  if (!candidate.entry.empty()) offered_[candidate.path] = {candidate.origin, entry};
  if (isSame) ++counts_.unchanged;
  if (isSame && isListed) return;
  Text why;
  const FileToPlace file{candidate.path, candidate.text, candidate.owner, candidate.mode};
  if (!unreadable_.empty() || (!isSame && !journal_.stage(file, why))) {
    errorLog("%s: %s: %s", nameOf(candidate.origin).c_str(), candidate.path.c_str(),
             unreadable_.empty() ? why.orEmpty() : unreadable_.c_str());
    return leaveOut(candidate.origin);
  }
  Change& change = changes_[candidate.origin];
  change.origin = candidate.origin;
  change.files.push_back({candidate.origin, candidate.path, candidate.path + (isSame ? "" : kCandidateEnding)});
  change.entries.push_back(std::move(candidate.entry));
  change.texts.append(fingerprintOf(candidate.text)).append(fingerprintOf(entry));
}

void Rewrite::refuse(const Origin& origin, const std::string& field, const std::string& why) {
  errorLog("%s: %s is refused: %s", nameOf(origin).c_str(), printable(field).c_str(), printable(why).c_str());
  leaveOut(origin);
}

void Rewrite::keep(const Origin& origin) {
  const AsRoot root;
  staying_.insert(origin);
  withdraw(origin);
}

void Rewrite::keepAccount(const std::string& account) {
  const AsRoot root;
  stayingAccounts_.insert(account);
  for (auto next = changes_.begin(); next != changes_.end();) {
    const Origin origin = (next++)->first;
    if (origin.account == account) withdraw(origin);
  }
}

void Rewrite::drop(const Origin& origin) {
  named_.insert(origin);
}

void Rewrite::leaveOut(const Origin& origin) {
  const AsRoot root;
  if (staying_.insert(origin).second) ++counts_.leftOut;
  withdraw(origin);
}

void Rewrite::withdraw(const Origin& origin) {
  const auto found = changes_.find(origin);
  if (found == changes_.end()) return;
  for (const TrialFile& file : found->second.files) {
    if (file.place != file.path) journal_.discard(file.path);
  }
  changes_.erase(found);
}

bool Rewrite::stays(const Origin& origin) const {
  return staying_.contains(origin) || stayingAccounts_.contains(origin.account);
}

void Rewrite::settleEntries() {
  std::erase_if(list_.entries(), [&](const auto& pair) {
    const auto& [path, entry] = pair;
    const bool goes =
        !stays(entry.origin) && (plan_.isWhole || named_.contains(entry.origin)) && !offered_.contains(path);
    if (goes) removed_.push_back(path);
    return goes;
  });
  for (auto& [path, entry] : offered_) {
    if (!stays(entry.origin)) list_.entries()[path] = std::move(entry);
  }
}

int Rewrite::stageList() {
  if (plan_.list.path.empty()) return 1;
  const std::string text = list_.text(plan_.list.head);
  const std::string* now = present(plan_.list.path);
  if (now != nullptr && *now == text) {
    journal_.discard(plan_.list.path);
    return 1;
  }
  if (!journal_.stage({plan_.list.path, text, plan_.list.owner, plan_.list.mode}, result)) return 0;
  put_.push_back(plan_.list.path);
  return 1;
}

int Rewrite::putInPlace() {
  for (const Change* change : accepted_) {
    for (const TrialFile& file : change->files) {
      if (file.place != file.path) put_.push_back(file.path);
    }
  }
  counts_.written = static_cast<long long>(put_.size());
  std::sort(put_.begin(), put_.end());
  settleEntries();
  if (!stageList()) return 0;
  counts_.removed = static_cast<long long>(removed_.size());
  if (put_.empty() && removed_.empty()) return 1;
  // What was read stands there no more.
  presentPath_.clear();
  hasChanged_ = journal_.commit(put_, removed_, plan_.followUp, result) != 0;
  return hasChanged_ ? 1 : 0;
}

int Rewrite::finish() {
  const AsRoot root;
  if (!judgeAll() || !putInPlace()) return 0;
  for (const Origin& origin : named_) {
    if (!stays(origin)) notes_.remove(origin);
  }
  if (plan_.isWhole) notes_.keepOnly(named_);
  notes_.write();
  tellAdministrators();
  return 1;
}

}  // namespace zvtaskq
