#include "mail/mail_files.h"

#include <algorithm>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {
constexpr std::size_t kLongestName = 200;
constexpr int kKeepBareLines = 1;
constexpr unsigned kPermissions = 0777;
}  // namespace

bool isMailName(const char* name) {
  const std::string_view text = name == nullptr ? std::string_view() : std::string_view(name);
  const auto fits = [](char c) { return c != '/' && c != '\x7f' && static_cast<unsigned char>(c) >= ' '; };
  return !text.empty() && text.front() != '.' && text.size() <= kLongestName &&
         std::all_of(text.begin(), text.end(), fits);
}

Descriptor openMailPath(const std::string& path, int flags) {
  // The top is the administrator's to name, and may be a link.
  const Descriptor top(sys::open(sys_conf->emailvirtual.orEmpty(), O_PATH | O_DIRECTORY));
  return top ? openBeneath(top.get(), path.c_str(), flags) : Descriptor();
}

std::string vacationFile(const char* domain) {
  return joined(sys_conf->emailvirtual, "/", domain, "/vacation.conf");
}

MailRecord::MailRecord(const char* path) : ConfigFile(path) {
  separator = ':';
  setUser(kMailUser);
}

int MailRecord::read() {
  if (!readFile(kKeepBareLines)) return 0;
  const AsUser mail(kMailUser);
  struct stat what {};
  if (sys::lstat(getFilename(), what) == 0 && S_ISREG(what.st_mode)) fileMode = what.st_mode & kPermissions;
  return 1;
}

}  // namespace zvtaskq
