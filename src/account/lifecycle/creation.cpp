#include "account/lifecycle/creation.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "account/lifecycle/account_data.h"
#include "account/lifecycle/account_home.h"
#include "account/lifecycle/account_lists.h"
#include "account/lifecycle/account_mail.h"
#include "account/lifecycle/creation_checks.h"
#include "account/lifecycle/disk_quota.h"
#include "account/model/account_hooks.h"
#include "account/model/account_name.h"
#include "account/model/account_work.h"
#include "account/model/addresses.h"
#include "account/model/ftp_files.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/panel/task.h"
#include "core/panel/task_queue.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "creations";
constexpr const char* kMark = "creations";
constexpr std::size_t kTokenLength = 20;
/// A name that can be no account's, for the lock of who makes one.
constexpr const char* kEveryAccount = "all";

/// A creation on its way. Its note stands in the state folder as long as it is: a system account is its own when the
/// comment is the note's token, whatever was made by hand meanwhile.
struct Creation {
  const ConfigFile& record;
  const char* hash;
  const char* name;
  PanelRecord note;

  std::string domain() const { return record.getOrEmpty("domain"); }
  std::string address() const { return note.getOrEmpty("address"); }
  bool ownsSystemAccount() const {
    const char* token = note.getOrEmpty("token");
    const passwd* account = ::getpwnam(name);
    return account != nullptr && *token != '\0' && std::strcmp(account->pw_gecos, token) == 0;
  }
};

/// One step, and what takes it back, however far it came. Nothing that was not made by this creation is taken back.
struct Step {
  int (*make)(Creation& creation, Text& result);
  int (*undo)(Creation& creation, Text& result);
};

int nothing(Creation&, Text&) {
  return 1;
}

int addSystemAccount(Creation& creation, bool beyondUnknown, Text& result) {
  std::vector<std::string> arguments = {"-m", "-c", creation.note.getOrEmpty("token")};
  if (::getgrnam(creation.name) == nullptr) {
    arguments.emplace_back("-U");
  } else {
    arguments.insert(arguments.end(), {"-g", creation.name});
  }
  if (beyondUnknown) {
    const std::string first = std::to_string(kUnknownId + 1);
    arguments.insert(arguments.end(), {"-K", "UID_MIN=" + first, "-K", "GID_MIN=" + first});
  }
  arguments.emplace_back(creation.name);
  return useTool(sys_conf->useradd, std::move(arguments), result);
}

int removeSystemAccount(Creation& creation, Text& result) {
  if (!creation.ownsSystemAccount()) return 1;
  AccountHolder holder;
  holder.name = creation.name;
  holder.findSystemAccount();
  return removeHome(holder, result) && deleteSystemUser(creation.name, result);
}

/// Nobody is to have the id that stands for an unknown one: what is done as an account would not be done for him.
int makeSystemAccount(Creation& creation, Text& result) {
  if (!addSystemAccount(creation, false, result)) return 0;
  const passwd* account = ::getpwnam(creation.name);
  const bool isFit = account != nullptr && account->pw_uid != kUnknownId && account->pw_gid != kUnknownId;
  return isFit || (removeSystemAccount(creation, result) && addSystemAccount(creation, true, result)) ? 1 : 0;
}

int setPassword(Creation& creation, Text& result) {
  if (creation.hash == nullptr || *creation.hash == '\0') return 1;
  if (std::strpbrk(creation.hash, ":\r\n") != nullptr) return fail(result, "That is no password hash");
  return useTool(sys_conf->chpasswd, {"-e"}, result, joined(creation.name, ":", creation.hash, "\n"));
}

int giveQuota(Creation& creation, Text& result) {
  return setQuota(creation.name, quotaOf(creation.record, creation.name), result);
}

int makePagesOf(Creation& creation, Text& result) {
  return makePages(creation.name, creation.domain().c_str(), result);
}

int makeDataOf(Creation& creation, Text& result) {
  return makeData(creation.record, result);
}

int removeDataOf(Creation& creation, Text& result) {
  return removeData(creation.name, result);
}

int makeMail(Creation& creation, Text& result) {
  const std::string domain = creation.domain();
  return domain.empty() ||
                 (makeMailDomain(domain.c_str(), result) && addDomainOwner(domain.c_str(), creation.name, result))
             ? 1
             : 0;
}

/// A domain that somebody else got meanwhile is left to him.
int removeMail(Creation& creation, Text& result) {
  const std::string domain = creation.note.getOrEmpty("domain");
  ConfigFile owners(nullptr);
  const bool isKnown = readDomainOwners(owners) && owners.existsParam(domain.c_str());
  const bool isOthers = isKnown && !owners.isValue(domain.c_str(), creation.name);
  const int done = domain.empty() || isOthers || removeMailDomain(domain.c_str(), result);
  return done & removeDomainOwner(creation.name, result);
}

int takeAddressOf(Creation& creation, Text& result) {
  return takeAddress(creation.address().c_str(), result);
}

int releaseAddressOf(Creation& creation, Text& result) {
  return releaseAddresses(creation.name, creation.address().c_str(), result);
}

int list(Creation& creation, Text& result) {
  return listAccount(creation.record, result);
}

int unlist(Creation& creation, Text& result) {
  return unlistAccount(creation.name, result);
}

int queueRewrites(Creation& creation, Text& result) {
  ConfigFile whose(nullptr);
  whose.setParam("user", creation.name);
  const char* domain = creation.record.getOrEmpty("domain");
  return queueWebRewrite(creation.name, result) && (*domain == '\0' || queueZoneRewrite(domain, result)) &&
         pushOnTaskQueue("rewrite", "links", nullptr, &whose) && pushOnTaskQueue("rewrite", "ipcount") &&
         queueFtpHosts(result);
}

int writeRecordOf(Creation& creation, Text& result) {
  return writeUserRecord(creation.record, result);
}

constexpr Step kSteps[] = {
    {makeSystemAccount, removeSystemAccount},
    {setPassword, nothing},
    {giveQuota, nothing},
    {makePagesOf, nothing},
    {makeDataOf, removeDataOf},
    {makeMail, removeMail},
    {takeAddressOf, releaseAddressOf},
    {list, unlist},
    {queueRewrites, nothing},
    {writeRecordOf, nothing},
};

std::string noteFile(const char* name) {
  return stateFile(joined(kFolder, "/", name));
}

int writeNote(Creation& creation, Text& result) {
  const char* ip = creation.record.getOrEmpty("ip");
  creation.note.empty();
  creation.note.setParam("token", getRandText(kTokenLength).c_str());
  creation.note.setParam("domain", creation.domain().c_str());
  PanelRecord address(adminFile(joined("ips/", ip).c_str()));
  if (*ip != '\0' && address.readFile() && address.isValue("status", kFreeStatus))
    creation.note.setParam("address", ip);
  if (openStateFolder(kFolder) && creation.note.writeFile()) return 1;
  return fail(result, "Unable to write ", creation.note.getFilename(), ": ", creation.note.result);
}

/// The comment has served when the account is whole.
int complete(Creation& creation, Text& result) {
  if (creation.ownsSystemAccount() && !useTool(sys_conf->usermod, {"-c", "", creation.name}, result)) return 0;
  return forgetCreation(creation.name, result);
}

/// Takes the steps back, the last first. When one cannot be, the note stays for the next.
int takeBack(Creation& creation, Text& result) {
  int done = 1;
  for (auto step = std::rbegin(kSteps); step != std::rend(kSteps); ++step) done &= step->undo(creation, result);
  return done && forgetCreation(creation.name, result);
}

/// What one that was killed left.
int settleLeftovers(Creation& creation, Text& result) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  if (sys::lstat(creation.note.getFilename(), what) != 0) return 1;
  if (!creation.note.readFile()) return fail(result, creation.note.result);
  ConfigFile record(nullptr);
  if (readAccount(creation.name, record)) return complete(creation, result);
  systemLog("What a creation of account %s left that did not end is taken back", creation.name);
  return takeBack(creation, result);
}

int makeAll(Creation& creation, Text& result) {
  for (const Step& step : kSteps) {
    if (step.make(creation, result)) continue;
    static_cast<void>(takeBack(creation, result));
    return 0;
  }
  return complete(creation, result);
}

/// The names of accounts of which there is a note.
std::vector<std::string> noted() {
  const AsUser panel(kPanelUser);
  const Descriptor folder(sys::open(stateFile(kFolder).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  std::vector<std::string> names;
  if (folder && !namesIn(folder.get(), names)) errorLog("Unable to read %s", stateFile(kFolder).c_str());
  std::erase_if(names, [](const std::string& name) { return !isAccountName(name.c_str()); });
  return names;
}

}  // namespace

int forgetCreation(const char* account, Text& result) {
  const AsUser panel(kPanelUser);
  const std::string note = noteFile(account);
  if (sys::unlink(note.c_str()) == 0 || errno == ENOENT) return 1;
  return fail(result, "Unable to remove ", note, ": ", std::strerror(errno));
}

void finishCreations() {
  const ConfigFile nothingMore(nullptr);
  for (const std::string& name : isDemo() ? std::vector<std::string>() : noted()) {
    const AccountLock lock(name.c_str(), 0);
    Text result;
    Creation creation{nothingMore, nullptr, name.c_str(), PanelRecord(noteFile(name.c_str()))};
    if (!lock.held() || settleLeftovers(creation, result) || !isDueAgain(kMark, name)) continue;
    errorLog("What a creation of account %s left cannot be taken back: %s", name.c_str(), result.orEmpty());
  }
}

int createAccount(const ConfigFile& record, const char* passwordHash, Text& result) {
  const char* name = record.getOrEmpty("username");
  const AccountWork work(name);
  if (!work.begin(result)) return 0;
  // Two at once would both find free what only one of them can have: a domain, an address, what a reseller has left.
  const AccountLock turn(kEveryAccount, kAccountLockWait);
  if (!turn.held()) return fail(result, "Unable to make account ", name, ": another is being made");
  Creation creation{record, passwordHash, name, PanelRecord(noteFile(name))};
  if (!settleLeftovers(creation, result) || !mayCreate(record, result)) return 0;
  const AccountHooks hooks{"create", name, &record};
  if (!hooks.allow(result) || !writeNote(creation, result) || !makeAll(creation, result)) return 0;
  // What the next tally counts anyway is no reason to take an account back.
  Text ignored;
  if (!allocate(record, true, ignored)) errorLog("%s", ignored.orEmpty());
  queueTask("cache", "showallusers");
  hooks.tell();
  systemLog("Account %s created", name);
  return 1;
}

}  // namespace zvtaskq
