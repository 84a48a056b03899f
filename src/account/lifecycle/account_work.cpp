#include "account/lifecycle/account_work.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/record/record_lock.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    const std::string_view word = trimmed(text.substr(0, comma));
    if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return words;
}

std::string joinedBy(const std::vector<std::string_view>& words) {
  std::string all;
  for (const std::string_view word : words) all.append(all.empty() ? "" : ",").append(word);
  return all;
}

}  // namespace

AccountWork::AccountWork(const char* name)
    : account(text_detail::part(name).data() == nullptr ? "" : name),
      lock(account, kAccountLockWait),
      lockError(lock.held() ? 0 : errno),
      record(accountFile(account, "user.conf")),
      notes(suspensionFile(account)) {}

int AccountWork::begin(Text& result) const {
  if (isDemo()) return fail(result, "That feature has been disabled for the demo");
  if (!isAccountName(account)) return fail(result, "Invalid user name");
  if (lock.held()) return 1;
  const std::string why = lockError == EWOULDBLOCK ? "another process is working on it" : std::strerror(lockError);
  return fail(result, "Unable to get the lock on account ", account, ": ", why);
}

int AccountWork::open(Text& result) {
  if (!begin(result)) return 0;
  if (!readAccount(account, record)) return fail(result, "Unable to read account ", account, " : ", record.result);
  return findHolder(account, holder, result) && notes.read(result);
}

bool AccountWork::isSuspended() const {
  return record.isValue("suspended", "yes") != 0;
}

int changeRecord(const std::string& path, const std::function<void(ConfigFile&)>& change, Text& result) {
  PanelRecord record(path);
  const RecordLock lock(record);
  if (!record.readFile()) return fail(result, record.result);
  change(record);
  return record.writeFile() ? 1 : fail(result, record.result);
}

int changeList(const std::string& path, const std::function<void(ListFile&)>& change, Text& result) {
  PanelList list(path);
  FileLock lock;
  if (!list.takeLock(lock)) return fail(result, "Unable to get Lock on file ", path);
  list.useLock = false;
  struct stat what {};
  const bool isThere = [&] {
    const AsUser panel(kPanelUser);
    return sys::lstat(path.c_str(), what) == 0 || errno != ENOENT;
  }();
  int done = !isThere || list.readFile();
  if (done) {
    change(list);
    done = list.writeFile();
  }
  list.releaseLock(lock);
  return done ? 1 : fail(result, list.result);
}

int queueWebRewrite(const char* account, Text& result) {
  ConfigFile whose(nullptr);
  whose.setParam("user", account);
  if (pushOnTaskQueue("rewrite", "httpd", nullptr, &whose)) return 1;
  std::string_view why = getSysResult();
  why = why.substr(0, why.find("<br>"));
  return fail(result, "Unable to queue action=rewrite&value=httpd&user=", account, ": ", why);
}

std::string wordsOfBoth(std::string_view words, std::string_view more) {
  return joinedBy(wordsOf(joined(words, ",", more)));
}

std::string wordsWithout(std::string_view words, std::string_view others) {
  const std::vector<std::string_view> gone = wordsOf(others);
  std::vector<std::string_view> left = wordsOf(words);
  std::erase_if(left, [&](std::string_view word) { return std::find(gone.begin(), gone.end(), word) != gone.end(); });
  return joinedBy(left);
}

}  // namespace zvtaskq
