#include "runner/upkeep/panel_package.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/private_folder.h"
#include "core/files/safe_file.h"
#include "core/panel/newer_release.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLargest = 128UL << 20;
constexpr int kFetchTime = 300;
constexpr int kToolTime = 60;
/// As curl ends for any status of 400 and above.
constexpr int kErrorAnswer = 22;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kOthersWrite = 022;
constexpr std::string_view kArmour = "-----BEGIN PGP PUBLIC KEY BLOCK-----";
constexpr std::string_view kSecure = "https://";
/// Nobody but this machine answers there.
constexpr std::string_view kLocal[] = {"http://127.0.0.1:", "http://127.0.0.1/", "http://localhost:",
                                       "http://localhost/", "http://[::1]:",     "http://[::1]/"};

bool isLocal(const std::string& source) {
  // "http://localhost:x@elsewhere" is not.
  const std::string shown = shownSource(source);
  return std::any_of(std::begin(kLocal), std::end(kLocal), [&](auto start) { return shown.starts_with(start); });
}

/// A line of curl's configuration.
std::string curlLine(const char* name, std::string_view value) {
  std::string line = joined(name, " = \"");
  for (const char c : value) line.append(c == '"' || c == '\\' ? "\\" : "") += c;
  return line.append("\"\n");
}

/// Whoever judges a package must be somebody whom no other program is, since that one could meddle with him: the
/// package manager's own user where there is one.
Ids judgeIds() {
  const Ids own = idsOf("_apt");
  return own.user == kUnknownId ? nobodyIds() : own;
}

ChildResult ask(const char* program, std::vector<std::string> arguments, std::string input = {}) {
  ChildPlan plan = ChildPlan::program(program, std::move(arguments));
  plan.identity = judgeIds();
  plan.workingDirectory = std::string(1, '/');
  plan.errors = ChildPlan::Stream::discard;
  if (!input.empty()) plan.inputs.push_back(std::move(input));
  plan.outputLimit = kLargest + 1;
  plan.timeLimit = kFetchTime;
  const AsRoot root;
  return runChild(plan);
}

int fetchUrl(const std::string& url, std::string& content, bool& isMissing, std::string& why) {
  if (printable(url) != url) {
    why = joined(printable(shownSource(url)), " is no URL");
    return 0;
  }
  const char* scheme = isLocal(url) ? "=http" : "=https";
  ChildResult child = ask("/usr/bin/curl",
                          {"--disable", "--silent", "--fail", "--location", "--max-redirs", "5", "--globoff", "--proto",
                           scheme, "--proto-redir", scheme, "--max-time", std::to_string(kFetchTime - kToolTime),
                           "--max-filesize", std::to_string(kLargest), "--config", "-"},
                          curlLine("url", url));
  isMissing = child.status == kErrorAnswer;
  why = child.timedOut                   ? "it takes too long"
        : child.output.size() > kLargest ? "it is too large"
        : isMissing                      ? "the server answers with an error (status 400 or above)"
        : child.status != 0              ? joined("curl ends with status ", std::to_string(child.status))
                                         : "";
  if (!why.empty()) why = joined(shownSource(url), " cannot be fetched: ", why);
  content = std::move(child.output);
  return why.empty() ? 1 : 0;
}

int readLocal(const std::string& path, std::string& content, bool& isMissing, std::string& why) {
  const AsRoot root;
  const Descriptor file = openRegularFile(path.c_str());
  isMissing = !file && errno == ENOENT;
  if (file && sys::readAll(file.get(), content, kLargest)) return 1;
  why = joined(path, ": ", std::strerror(errno));
  return 0;
}

int valueOf(char c) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t at = kDigits.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string decoded(std::string_view text) {
  constexpr unsigned kBits = 6;
  constexpr unsigned kByte = 8;
  std::string bytes;
  unsigned held = 0;
  unsigned count = 0;
  for (const char c : text) {
    const int value = valueOf(c);
    if (value < 0) continue;
    held = held << kBits | static_cast<unsigned>(value);
    count += kBits;
    if (count < kByte) continue;
    count -= kByte;
    bytes += static_cast<char>(held >> count & 0xFFU);
  }
  return bytes;
}

}  // namespace

int UpdateFolder::take(std::string& why) {
  const AsRoot root;
  folder_ = openPrivateFolder(path("").c_str(), kFolderMode);
  if (folder_ && sys::flockNow(folder_.get(), LOCK_EX) == 0) return 1;
  why = errno == EWOULDBLOCK ? "another run is at it" : joined(path(""), ": ", std::strerror(errno));
  return 0;
}

std::string UpdateFolder::path(const char* file) const {
  return joined(sys_conf->serverpath, "/data/update", *file == '\0' ? "" : "/", file);
}

int UpdateFolder::put(const char* file, const std::string& content, std::string& why) const {
  const AsRoot root;
  SafeFile out(path(file).c_str());
  const bool isOpen = out.open() != 0;
  if (isOpen) out.write(content);
  if (isOpen && sys::fchmod(out.descriptor(), kFileMode) == 0 && out.finish() && out.putInPlace()) return 1;
  why = joined(path(file), ": ", std::strerror(errno));
  return 0;
}

std::string shownSource(const std::string& source) {
  const std::size_t scheme = source.find("://");
  if (scheme == std::string::npos) return source;
  const std::size_t host = scheme + 3;
  const std::size_t end = std::min(source.find_first_of("/?#\\", host), source.size());
  const std::size_t at = source.rfind('@', end);
  const bool hasName = at != std::string::npos && at >= host && at < end;
  return hasName ? joined(source.substr(0, host), source.substr(at + 1)) : source;
}

bool isUrl(const std::string& source) {
  return source.find("://") != std::string::npos;
}

bool isRemote(const std::string& source) {
  return isUrl(source) && !isLocal(source);
}

int fetchPart(const std::string& source, std::string& content, bool& isMissing, std::string& why) {
  isMissing = false;
  if (!isUrl(source)) return readLocal(source, content, isMissing, why);
  if (source.starts_with(kSecure) || isLocal(source)) return fetchUrl(source, content, isMissing, why);
  why = joined(shownSource(source), " is not fetched: it is neither of https nor on this machine");
  return 0;
}

int readKey(const std::string& path, std::string& content, std::string& why) {
  const AsRoot root;
  struct stat what {};
  const Descriptor file = openRegularFile(path.c_str(), what);
  const bool isRead = file && sys::readAll(file.get(), content, kLargest);
  const int error = errno;
  const bool isOthers = isRead && (!isPanels(what) || (what.st_mode & kOthersWrite) != 0);
  if (isRead && !isOthers) return 1;
  const bool isNoFile = !file && (error == ELOOP || error == EINVAL);
  why = isOthers || isNoFile ? joined(path, " is no file that root or the panel alone can change")
                             : joined(path, ": ", std::strerror(error));
  return 0;
}

int readPackage(const std::string& path, PackageFields& fields, std::string& why) {
  const ChildResult child = ask("/usr/bin/dpkg-deb", {"--showformat", "${Package}\n${Version}\n", "--show", path});
  const std::size_t end = child.output.find('\n');
  if (child.status != 0 || child.timedOut || end == std::string::npos) {
    why = "it is no package";
    return 0;
  }
  fields.name = child.output.substr(0, end);
  fields.version = trimmed(std::string_view(child.output).substr(end + 1, child.output.find('\n', end + 1) - end - 1));
  if (fields.name == kPackageName && readVersion(programVersionOf(fields.version))) return 1;
  why = joined("it is a package of ", printable(fields.name), ", version ", printable(fields.version));
  return 0;
}

std::string programVersionOf(const std::string& packageVersion) {
  return packageVersion.substr(0, packageVersion.rfind('-'));
}

std::string presentVersion() {
  const ChildResult present =
      ask("/usr/bin/dpkg-query", {"--showformat", "${db:Status-Status} ${Version}", "--show", kPackageName});
  constexpr std::string_view kInstalled = "installed ";
  const bool isInstalled = present.status == 0 && present.output.starts_with(kInstalled);
  return isInstalled ? present.output.substr(kInstalled.size()) : "";
}

bool isNewerPackage(const PackageFields& fields) {
  if (const std::string version = presentVersion(); !version.empty()) {
    return ask("/usr/bin/dpkg", {"--compare-versions", fields.version, "gt", version}).status == 0;
  }
  const std::optional<Version> offered = readVersion(programVersionOf(fields.version));
  return offered && *offered > readVersion(sys_conf->version).value_or(Version());
}

std::string whyNotSigned(const UpdateFolder& folder, const char* package, const char* signature, const char* key) {
  const ChildResult child = ask("/usr/bin/gpgv", {"--homedir", "/nonexistent", "--status-fd", "1", "--keyring",
                                                  folder.path(key), folder.path(signature), folder.path(package)});
  const auto says = [&](const char* word) {
    return child.output.find(joined("[GNUPG:] ", word, " ")) != std::string::npos;
  };
  if (child.timedOut) return "gpgv does not end";
  if (says("EXPKEYSIG") || says("EXPSIG") || says("REVKEYSIG")) return "the key or its signature holds no more";
  return child.status == 0 && says("GOODSIG") && says("VALIDSIG") ? "" : "it is not signed by the key";
}

std::string plainKey(const std::string& content) {
  const std::size_t begin = content.find(kArmour);
  if (begin == std::string::npos) return content;
  std::string_view body = std::string_view(content).substr(begin);
  const std::size_t blank = std::min(body.find("\n\n"), body.find("\n\r\n"));
  const std::size_t end = body.find("\n-----END", blank == std::string_view::npos ? 0 : blank);
  if (blank == std::string_view::npos || end == std::string_view::npos) return "";
  body = body.substr(blank, end - blank);
  // A checksum, which a line that begins with "=" holds, is no part of it.
  return decoded(body.substr(0, body.find("\n=")));
}

}  // namespace zvtaskq
