#include "services/certificate/acme_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/private_folder.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/process/system_tool.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

constexpr const char* kClient = "/usr/bin/dehydrated";
constexpr const char* kConfiguration = "acme_client.conf";
constexpr const char* kRequestFile = "/request.pem";
constexpr int kTimeLimit = 120;
constexpr int kTries = 3;
constexpr std::size_t kMostOutput = 1UL << 20;
/// Of a certificate with its chain: more than the web servers' copy may be is no answer.
constexpr std::size_t kLargest = 64UL << 10;
/// Seconds.
constexpr int kLeftOver = 86400;
constexpr std::size_t kLongestWords = 500;
constexpr mode_t kOpenMode = 0755;
constexpr mode_t kOwnMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

std::string acmeFolder() {
  return joined(sys_conf->serverpath, "/data/acme");
}

/// A folder of the client's in one that root alone can change. 0 with errno.
int makeOwnFolder(int parent, const char* name, Ids owner, mode_t mode) {
  if (sys::mkdirat(parent, name, mode) != 0 && errno != EEXIST) return 0;
  const Descriptor folder(sys::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder && sys::fchown(folder.get(), owner.user, owner.group) == 0 && sys::fchmod(folder.get(), mode) == 0;
}

/// Takes away what a client that was killed left in a folder of its own: files that begin so and are a day old.
void clearOld(const std::string& path, std::string_view start) {
  const AsUser client(kAcmeUser);
  FolderReader folder(path.c_str());
  if (!folder) return;
  const std::time_t limit = std::time(nullptr) - kLeftOver;
  while (const dirent* entry = folder.next()) {
    struct stat what {};
    if (!std::string_view(entry->d_name).starts_with(start)) continue;
    if (sys::lstatAt(folder.descriptor(), entry->d_name, what) != 0 || !S_ISREG(what.st_mode)) continue;
    if (what.st_mtime < limit) static_cast<void>(sys::unlinkat(folder.descriptor(), entry->d_name, 0));
  }
}

/// The certificates of an output, in their order.
std::string certificatesIn(std::string_view output) {
  std::string all;
  for (std::size_t at = output.find(kBegin); at != std::string_view::npos; at = output.find(kBegin)) {
    const std::size_t end = output.find(kEnd, at);
    if (end == std::string_view::npos) break;
    all.append(output.substr(at, end + kEnd.size() - at)).append("\n");
    output.remove_prefix(end + kEnd.size());
  }
  return all;
}

/// The text of a JSON string that begins behind its first quote.
std::string quotedIn(std::string_view json) {
  std::string text;
  for (std::size_t i = 0; i < json.size() && json[i] != '"'; ++i) {
    if (json[i] == '\\' && i + 1 < json.size()) ++i;
    text += json[i];
  }
  return text;
}

/// What the authority says of an order that it refuses, else the client's own words.
std::string reasonIn(std::string_view output) {
  constexpr std::string_view kDetail = "\"detail\"";
  constexpr std::string_view kError = "ERROR:";
  const std::size_t detail = output.rfind(kDetail);
  const std::size_t error = output.rfind(kError);
  std::string words;
  if (detail != std::string_view::npos) {
    output.remove_prefix(detail + kDetail.size());
    words = quotedIn(output.substr(std::min(output.find('"') + 1, output.size())));
  } else {
    output.remove_prefix(error == std::string_view::npos ? 0 : error + kError.size());
    words = trimmed(output.substr(0, output.find('\n', 1)));
  }
  return printable(std::string_view(words).substr(0, kLongestWords));
}

/// Whether the client itself says so: in a line of its own, and not in what the authority tells of a site's answer.
bool says(const std::string& output, std::string_view words) {
  const std::string line = joined("ERROR: ", words);
  return output.starts_with(line) || output.find("\n" + line) != std::string::npos;
}

/// Whether the authority answered with that kind of error. In what it tells of a site's answer quotes are escaped.
bool isKind(const std::string& output, std::string_view kind) {
  return output.find(joined("\"urn:ietf:params:acme:", kind, "\"")) != std::string::npos;
}

}  // namespace

std::string challengeFolder() {
  return acmeFolder() + "/challenges";
}

std::string AcmeClient::prepare() {
  const Ids client = idsOf(kAcmeUser);
  if (client.user == kUnknownId) return joined("there is no user ", kAcmeUser);
  if (!toolExists(kClient)) return joined("there is no ", kClient);
  folder_ = acmeFolder() + "/client";
  configuration_ = templatePath(*sys_conf, kConfiguration);
  const AsRoot root;
  const Descriptor folder = openPrivateFolder(acmeFolder().c_str(), kOpenMode);
  const bool isMade = folder && makeOwnFolder(folder.get(), "client", client, kOwnMode) &&
                      makeOwnFolder(folder.get(), "challenges", client, kOpenMode);
  if (!isMade) return joined(acmeFolder(), ": ", std::strerror(errno));
  clearOld(challengeFolder(), "");
  clearOld(folder_, "dehydrated-");
  return "";
}

Signing AcmeClient::sign(const std::string& request, std::string& pem, std::string& words) const {
  const Ids client = idsOf(kAcmeUser);
  const std::string file = folder_ + kRequestFile;
  Text result;
  if (!writeWhole(file, client, request, kFileMode, result)) {
    words = joined(file, " cannot be written");
    return Signing::unreachable;
  }
  ChildPlan plan =
      ChildPlan::program(kClient, {"--config", configuration_, "--accept-terms", "--no-lock", "--signcsr", file});
  plan.identity = client;
  plan.workingDirectory = folder_;
  plan.variables = {{"ZV_ACME_FOLDER", folder_}, {"ZV_ACME_CHALLENGES", challengeFolder()}};
  plan.errors = ChildPlan::Stream::collect;
  plan.outputLimit = kMostOutput;
  plan.timeLimit = kTimeLimit;
  const AsRoot root;
  ChildResult child;
  // A number that was used or has aged is no refusal.
  for (int i = 0; i < kTries; ++i) {
    child = runChild(plan);
    if (child.status == 0 || child.timedOut || !isKind(child.output, "error:badNonce")) break;
  }
  pem = certificatesIn(child.output);
  if (child.status == 0 && !child.timedOut && !pem.empty() && pem.size() <= kLargest) return Signing::done;
  words = child.timedOut          ? "it takes too long"
          : pem.size() > kLargest ? "the answer is too large"
                                  : reasonIn(child.output);
  const bool isReachable =
      child.status != -1 && child.status != 127 && !says(child.output, "Problem connecting to server");
  return isReachable ? Signing::refused : Signing::unreachable;
}

}  // namespace zvtaskq
