#include "core/sys/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestName = 128;
constexpr std::size_t kLongestVariable = 128 * 1024 - 1;
constexpr std::size_t kMostVariables = 1024 * 1024;

/// Names that programs obey. One that ends in "*" stands for all that begin so. A name is here when setting it can
/// change which code runs, which file is read or written, where a program connects, or how a shell reads its script.
constexpr std::string_view kObeyedNames[] = {
    // The clean environment's own.
    "PATH", "HOME", "USER", "LOGNAME", "SHELL", "LANG",
    // Loader and C library.
    "LD_*", "GLIBC_*", "MALLOC_*", "GCONV_PATH", "GETCONF_DIR", "LOCPATH", "NLSPATH", "LANGUAGE", "LC_*", "TZ", "TZDIR",
    "TMP", "TEMP", "TMPDIR", "HOSTALIASES", "LOCALDOMAIN", "RES_OPTIONS", "RESOLV_HOST_CONF", "RESOLV_*", "NIS_PATH",
    "POSIXLY_CORRECT", "MEMUSAGE*", "SEGFAULT_*", "PCPROFILE_OUTPUT", "DEBUGINFOD_*",
    // Shells.
    "BASH_*", "BASHOPTS", "SHELLOPTS", "ENV", "IFS", "CDPATH", "FPATH", "GLOBIGNORE", "PS0", "PS1", "PS2", "PS3", "PS4",
    "PROMPT_COMMAND", "OPTIND", "OPTARG", "OPTERR", "EXECIGNORE", "FCEDIT", "HIST*", "INPUTRC", "MAIL", "MAILPATH",
    "MAILCHECK", "PPID", "UID", "EUID", "GROUPS", "PWD", "OLDPWD", "ZDOTDIR", "KSH_*",
    // Languages.
    "PYTHON*", "PERL*", "RUBY*", "GEM_*", "BUNDLE_*", "PHPRC", "PHP_*", "NODE_*", "NPM_*", "LUA_*", "TCL*", "TK_*",
    "AWKPATH", "AWKLIBPATH", "GAWK*", "JAVA_*", "_JAVA_OPTIONS", "JDK_*", "CLASSPATH", "GUILE_*", "GOTRACEBACK",
    "GODEBUG",
    // Archivers, editors, pagers, version control.
    "TAR_OPTIONS", "TAPE", "TAR_*", "RMT", "GZIP", "GZIP_*", "PIGZ", "UNPIGZ", "BZIP", "BZIP2", "XZ_*", "ZSTD_*", "LZ*",
    "UNZIP*", "ZIP*", "CPIO_*", "EDITOR", "VISUAL", "PAGER", "LESS*", "MANPAGER", "BROWSER", "TERM*", "GIT_*", "SVN_*",
    "CVS_*", "VIMINIT", "VIM*", "EXINIT", "GREP_*", "MAKEFLAGS", "MAKEFILES", "MFLAGS", "SUDO_*",
    // Network and services.
    "SSH_*", "RSYNC_*", "CURL_*", "WGETRC", "SYSTEM_WGETRC", "NETRC", "LFTP_*", "FTP*", "OPENSSL_*", "SSL*",
    "SSLKEYLOGFILE", "GNUTLS_*", "NSS_*", "P11_KIT_*", "KRB5*", "MYSQL_*", "LIBMYSQL_*", "MARIADB_*", "PG*", "REDIS*",
    "http_proxy", "https_proxy", "ftp_proxy", "rsync_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY",
    "FTP_PROXY", "ALL_PROXY", "NO_PROXY", "SYSTEMD_*", "DBUS_*", "NOTIFY_SOCKET", "LISTEN_*", "XDG_*", "DEBIAN_*",
    "DEBCONF_*", "DPKG_*", "APT_*", "DISPLAY", "XAUTHORITY", "GNUPGHOME", "GPG_*"};

bool isPlainName(std::string_view name) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  const auto letterOrDigit = [&](char c) { return letter(c) || (c >= '0' && c <= '9'); };
  return !name.empty() && name.size() <= kLongestName && letter(name.front()) &&
         std::all_of(name.begin(), name.end(), letterOrDigit);
}

struct Account {
  std::string name;
  std::string home;
};

Account accountOf(uid_t uid) {
  std::vector<char> room(4096);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(uid, &entry, room.data(), room.size(), &found) == ERANGE) room.resize(room.size() * 2);
  if (found == nullptr) return {std::to_string(uid), "/"};
  return {entry.pw_name, entry.pw_dir};
}

}  // namespace

std::vector<std::string> cleanEnvironment(Ids who, std::string_view language) {
  // Root's account is asked for by most children, and the account file of a large server is slow to search.
  static const Account root = accountOf(0);
  const Account account = who.user == 0 ? root : accountOf(who.user);
  return {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
          "HOME=" + account.home,
          "USER=" + account.name,
          "LOGNAME=" + account.name,
          "SHELL=/bin/sh",
          joined("LANG=", language)};
}

void useCleanEnvironment() {
  // The fail points take their plan from the environment, once: let them do it while it is there.
  static_cast<void>(failPoint("environment.clean"));
  const std::vector<std::string> clean = cleanEnvironment(realIds());
  ::clearenv();
  for (const std::string& variable : clean) {
    const std::size_t equals = variable.find('=');
    ::setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);
  }
}

bool isExportableName(std::string_view name) {
  if (!isPlainName(name)) return false;
  return std::none_of(std::begin(kObeyedNames), std::end(kObeyedNames), [&](std::string_view obeyed) {
    return obeyed.ends_with('*') ? name.starts_with(obeyed.substr(0, obeyed.size() - 1)) : name == obeyed;
  });
}

void addVariables(std::vector<std::string>& environment, const std::vector<Variable>& variables) {
  std::size_t total = 0;
  for (const auto& [name, value] : variables) {
    if (!isExportableName(name)) {
      debug(1000, "Variable '%s' is not exported", printable(name).c_str());
      continue;
    }
    std::string variable = joined(name, "=", std::string_view(value).substr(0, value.find('\0')));
    if (variable.size() > kLongestVariable) variable.resize(kLongestVariable);
    total += variable.size() + sizeof(char*);
    if (total > kMostVariables) {
      errorLog("Too many variables for a script: leaving out %s and all after it", name.c_str());
      return;
    }
    environment.push_back(std::move(variable));
  }
}

}  // namespace zvtaskq
