#include "account/suspension/account_marks.h"

#include <shadow.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "account/model/ftp_files.h"
#include "account/model/password_marks.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "core/sys/privileges.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr const char* kSystem = "system";
/// They are kept in memory and in a file of the account's; the mail server's user could write any number.
constexpr std::size_t kMostNoted = 100'000;
/// A day long past, at which a suspended system account expires; the tool's own manual names this one.
constexpr long kExpired = 1;

// --- Password files ----------------------------------------------------------------------------------------------

/// A password file: where it is, whose its folder is, whose of its lines count, and how the notes name them.
struct PasswordFile {
  std::string path;
  Ids owner{};
  std::function<bool(const PasswordLine&)> counts;
  std::function<std::string(std::string_view)> note;
  explicit operator bool() const { return !path.empty(); }
};

/// The password file of a mail domain. None, with 1, when there is none; 0 when a link stands on the way to it.
int mailboxesOf(const char* domain, PasswordFile& file, Text& result) {
  const Ids mail = idsOf(kMailUser);
  if (mail.user == kUnknownId || sys_conf->emailvirtual.isEmpty()) return 1;
  const AsUser user(mail);
  const std::string name = joined(domain, "/passwd");
  const Descriptor there = openMailPath(name, O_PATH);
  if (!there) {
    if (errno == ENOENT || errno == ENOTDIR) return 1;
    return fail(result, "Unable to open ", sys_conf->emailvirtual, "/", name, ": ", std::strerror(errno));
  }
  file.path = joined(sys_conf->emailvirtual, "/", name);
  file.owner = mail;
  file.counts = [](const PasswordLine&) { return true; };
  file.note = [domain = std::string(domain)](std::string_view box) { return mailboxNote(box, domain.c_str()); };
  return 1;
}

/// Those that his FTP accounts may stand in: the file of all, and one of each domain. There need not be any.
std::vector<PasswordFile> ftpOf(const AccountHolder& holder) {
  std::vector<PasswordFile> files = {
      {std::string(sys_conf->ftppasswd.view()), kRootIds,
       [&holder](const PasswordLine& line) { return holder.ownsFtp(line.name, line.uid); },
       [](std::string_view name) { return joined("ftp ", name); }}};
  for (const std::string& domain : holder.domains) {
    files.push_back(
        {domainFtpFile(holder.name.c_str(), domain.c_str()), idsOf(kPanelUser),
         [](const PasswordLine&) { return true; },
         [&holder, domain](std::string_view name) { return joined("ftp ", wholeFtpName(name, holder.name, domain)); }});
  }
  return files;
}

/// Does it to each file: one that fails keeps no other from it.
template <class Do>
int inEach(const std::vector<PasswordFile>& files, Do work) {
  int done = 1;
  for (const PasswordFile& file : files) done &= work(file);
  return done;
}

int noteMarksIn(const PasswordFile& file, SuspensionNotes& notes, Text& result) {
  if (!file) return 1;
  const auto look = [&](std::string_view text) {
    const PasswordLine line(text);
    const bool counts = notes.blocked.size() <= kMostNoted && line.isOne && file.counts(line);
    if (counts && isSuspendedPassword(line.hash)) notes.blocked.insert(file.note(line.name));
  };
  if (!readLinesOf(file.path, file.owner, look, result)) return 0;
  return notes.blocked.size() <= kMostNoted ? 1
                                            : fail(result, file.path, " holds more marked passwords than anybody has");
}

int markIn(const PasswordFile& file, Text& result) {
  if (!file) return 1;
  const auto mark = [&](std::string_view text, std::string& instead) {
    const PasswordLine line(text);
    if (!line.isOne || !file.counts(line) || !isLivePassword(line.hash)) return LineFate::keep;
    instead = joined(line.name, ":!", line.hash, line.rest);
    return LineFate::replace;
  };
  return editLines(file.path, file.owner, mark, {}, result);
}

int freeIn(const PasswordFile& file, const SuspensionNotes& notes, Text& result) {
  if (!file) return 1;
  const auto free = [&](std::string_view text, std::string& instead) {
    const PasswordLine line(text);
    if (!line.isOne || !file.counts(line) || !isSuspendedPassword(line.hash)) return LineFate::keep;
    if (notes.blocked.contains(file.note(line.name))) return LineFate::keep;
    instead = joined(line.name, ":", line.hash.substr(1), line.rest);
    return LineFate::replace;
  };
  return editLines(file.path, file.owner, free, {}, result);
}

// --- The system account ------------------------------------------------------------------------------------------

struct SystemPassword {
  bool exists = false;
  std::string hash;
  long expires = -1;

  /// As the notes have it.
  std::string day() const { return expires < 0 ? std::string() : std::to_string(expires); }
};

SystemPassword systemPasswordOf(const AccountHolder& holder) {
  const AsRoot root;
  const spwd* shadow = holder.isPerson() ? ::getspnam(holder.name.c_str()) : nullptr;
  if (shadow == nullptr) return {};
  return {true, std::string(text_detail::part(shadow->sp_pwdp)), shadow->sp_expire};
}

/// Lets the system's own program change the account. That it says so is not enough.
int change(const AccountHolder& holder, std::vector<std::string> arguments,
           const std::function<bool(const SystemPassword&)>& isDone, Text& result) {
  arguments.push_back(holder.name);
  if (!useTool(sys_conf->usermod, arguments, result)) return 0;
  return isDone(systemPasswordOf(holder))
             ? 1
             : fail(result, sys_conf->usermod, " did not change the password of ", holder.name);
}

}  // namespace

std::string mailboxNote(std::string_view mailbox, const char* domain) {
  return joined("mail ", mailbox, "@", domain);
}

int noteMailboxMarks(const char* domain, SuspensionNotes& notes, Text& result) {
  PasswordFile file;
  return mailboxesOf(domain, file, result) && noteMarksIn(file, notes, result);
}

int noteAccountMarks(const AccountHolder& holder, SuspensionNotes& notes, Text& result) {
  const SystemPassword system = systemPasswordOf(holder);
  if (isSuspendedPassword(system.hash)) notes.blocked.insert(kSystem);
  if (system.exists) notes.expires = system.day();
  return inEach(ftpOf(holder), [&](const PasswordFile& file) { return noteMarksIn(file, notes, result); });
}

int markSystem(const AccountHolder& holder, const SuspensionNotes& notes, Text& result) {
  const SystemPassword system = systemPasswordOf(holder);
  if (!system.exists) return 1;
  std::vector<std::string> arguments;
  if (isLivePassword(system.hash)) arguments.emplace_back("-L");
  if (notes.expires && system.expires != kExpired) {
    arguments.insert(arguments.end(), {"-e", std::to_string(kExpired)});
  }
  if (arguments.empty()) return 1;
  const auto isDone = [&](const SystemPassword& now) {
    return !isLivePassword(now.hash) && (!notes.expires || now.expires == kExpired);
  };
  return change(holder, std::move(arguments), isDone, result);
}

int freeSystem(const AccountHolder& holder, const SuspensionNotes& notes, Text& result) {
  const SystemPassword system = systemPasswordOf(holder);
  std::vector<std::string> arguments;
  if (isSuspendedPassword(system.hash) && !notes.blocked.contains(kSystem)) arguments.emplace_back("-U");
  if (notes.expires && system.expires == kExpired) arguments.insert(arguments.end(), {"-e", *notes.expires});
  if (!system.exists || arguments.empty()) return 1;
  const std::string wanted = arguments.front() == "-U" ? system.hash.substr(1) : system.hash;
  const std::string day = notes.expires && system.expires == kExpired ? *notes.expires : system.day();
  const auto isDone = [&](const SystemPassword& now) { return now.hash == wanted && now.day() == day; };
  return change(holder, std::move(arguments), isDone, result);
}

int markMailboxes(const char* domain, Text& result) {
  PasswordFile file;
  return mailboxesOf(domain, file, result) && markIn(file, result);
}

int freeMailboxes(const char* domain, const SuspensionNotes& notes, Text& result) {
  PasswordFile file;
  return mailboxesOf(domain, file, result) && freeIn(file, notes, result);
}

int markFtp(const AccountHolder& holder, Text& result) {
  const int done = inEach(ftpOf(holder), [&](const PasswordFile& file) { return markIn(file, result); });
  return queueFtpPasswords(result) & done;
}

int freeFtp(const AccountHolder& holder, const SuspensionNotes& notes, Text& result) {
  const int done = inEach(ftpOf(holder), [&](const PasswordFile& file) { return freeIn(file, notes, result); });
  return queueFtpPasswords(result) & done;
}

int dropFtp(const AccountHolder& holder, Text& result) {
  const auto dropIn = [&](const PasswordFile& file) {
    const auto drop = [&](std::string_view text, std::string&) {
      const PasswordLine line(text);
      return line.isOne && file.counts(line) ? LineFate::drop : LineFate::keep;
    };
    return file ? editLines(file.path, file.owner, drop, {}, result) : 1;
  };
  const int done = inEach(ftpOf(holder), dropIn);
  return queueFtpHosts(result) & done;
}

}  // namespace zvtaskq
