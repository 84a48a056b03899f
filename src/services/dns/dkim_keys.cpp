#include "services/dns/dkim_keys.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>

#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "services/dns/record_rules.h"

namespace zvtaskq {

namespace {

constexpr const char* kMailUser = "mail";
constexpr std::string_view kBefore = "dkim.zv";
constexpr std::string_view kBehind = ".pub";
constexpr mode_t kMode = 0640;
constexpr int kTimeLimit = 60;
/// Seconds until a new key signs, and until one that signs no more goes.
constexpr long long kUntilUse = 86400;
constexpr long long kUntilGone = 7 * 86400;
constexpr std::size_t kLongestKey = 4096;

struct Key {
  int number = 0;
  long long made = 0;
};

std::string folderOf(const std::string& domain) {
  return joined(sys_conf->emailvirtual, "/", domain);
}

std::string keyFile(const std::string& domain, int number, const char* ending) {
  return joined(folderOf(domain), "/dkim.zv", std::to_string(number), ending);
}

std::string selectorFile(const std::string& domain) {
  return folderOf(domain) + "/dkim.selector";
}

/// The keys of a domain, the oldest first. Works as the mail server's user. 0 with errno when its folder cannot be
/// read.
int keysOf(const std::string& domain, std::vector<Key>& keys) {
  const AsUser mail(kMailUser);
  FolderReader folder(folderOf(domain).c_str());
  if (!folder) return 0;
  while (const dirent* entry = folder.next()) {
    const std::string_view name = entry->d_name;
    if (!name.starts_with(kBefore) || !name.ends_with(kBehind)) continue;
    const std::string_view digits = name.substr(kBefore.size(), name.size() - kBefore.size() - kBehind.size());
    Key key;
    struct stat what {};
    const char* end = digits.data() + digits.size();
    const auto [behind, error] = std::from_chars(digits.data(), end, key.number);
    if (error != std::errc() || behind != end || key.number < 1) continue;
    if (sys::lstatAt(folder.descriptor(), entry->d_name, what) != 0 || !S_ISREG(what.st_mode)) continue;
    key.made = what.st_mtim.tv_sec;
    keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) { return a.number < b.number; });
  return 1;
}

/// What OpenSSL prints. 0 with its words.
int askOpenSsl(std::vector<std::string> arguments, const std::string& input, std::string& output, Text& result) {
  ChildPlan plan = ChildPlan::program(sys_conf->openssl.orEmpty(), std::move(arguments));
  plan.identity = idsOf(kMailUser);
  plan.inputs.push_back(input);
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kTimeLimit;
  ChildResult child = runChild(plan);
  if (child.status != 0 || child.timedOut || child.output.empty()) {
    return fail(result, plan.name, " gives no key (status ", std::to_string(child.status), ")");
  }
  output = std::move(child.output);
  return 1;
}

/// What stands between the first and the last line of a PEM text, in one line.
std::string baseOf(std::string_view pem) {
  std::string base;
  while (!pem.empty()) {
    const std::size_t end = pem.find('\n');
    const std::string_view line = pem.substr(0, end);
    if (!line.starts_with("-----")) base.append(line);
    pem.remove_prefix(end == std::string_view::npos ? pem.size() : end + 1);
  }
  return base;
}

int makeKey(const std::string& domain, int number, Text& result) {
  std::string secret;
  std::string open;
  if (!askOpenSsl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048"}, "", secret, result)) return 0;
  if (!askOpenSsl({"pkey", "-pubout"}, secret, open, result)) return 0;
  const Ids mail = idsOf(kMailUser);
  // The public one last: it is what makes a key of both.
  return writeWhole(keyFile(domain, number, ".key"), mail, secret, kMode, result) &&
         writeWhole(keyFile(domain, number, ".pub"), mail, baseOf(open) + "\n", kMode, result);
}

int selectorOf(const std::string& domain, long long& since) {
  const AsUser mail(kMailUser);
  std::string text;
  Text ignored;
  struct stat what {};
  int number = 0;
  if (!readWhole(selectorFile(domain), idsOf(kMailUser), text, ignored) || !text.starts_with("zv")) return 0;
  std::from_chars(text.data() + 2, text.data() + text.size(), number);
  since = sys::lstat(selectorFile(domain).c_str(), what) == 0 ? what.st_mtim.tv_sec : 0;
  return number;
}

int useKey(const std::string& domain, int number, Text& result) {
  return writeWhole(selectorFile(domain), idsOf(kMailUser), joined("zv", std::to_string(number), "\n"), kMode, result);
}

void removeKey(const std::string& domain, int number) {
  const AsUser mail(kMailUser);
  for (const char* ending : {".pub", ".key"}) static_cast<void>(sys::unlink(keyFile(domain, number, ending).c_str()));
}

bool isBase64(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '/' ||
           c == '=';
  });
}

}  // namespace

int makeDkimKeys(const std::string& domain, bool rotates, Text& result) {
  std::vector<Key> keys;
  if (!keysOf(domain, keys)) return fail(result, folderOf(domain), ": ", std::strerror(errno));
  const long long now = std::time(nullptr);
  if (keys.empty()) return makeKey(domain, 1, result) && useKey(domain, 1, result);
  long long since = 0;
  const Key& newest = keys.back();
  const int used = selectorOf(domain, since);
  const bool isKnown = std::any_of(keys.begin(), keys.end(), [&](const Key& key) { return key.number == used; });
  const bool isDue = newest.number != used && newest.made + kUntilUse <= now;
  if ((isDue || !isKnown) && !useKey(domain, isKnown || isDue ? newest.number : keys.front().number, result)) return 0;
  if (newest.number != used) return 1;
  for (const Key& key : keys) {
    if (key.number != used && since + kUntilGone <= now) removeKey(domain, key.number);
  }
  return rotates ? makeKey(domain, newest.number + 1, result) : 1;
}

std::vector<std::string> dkimRecords(const std::string& domain) {
  std::vector<Key> keys;
  std::vector<std::string> records;
  if (!keysOf(domain, keys)) return records;
  for (const Key& key : keys) {
    std::string text;
    Text why;
    const std::string file = keyFile(domain, key.number, ".pub");
    const int isRead = readWhole(file, idsOf(kMailUser), text, why);
    const std::string_view base = trimmed(std::string_view(text).substr(0, text.find('\n')));
    if (!isRead || base.size() > kLongestKey || !isBase64(base)) {
      errorLog("%s is no key: %s", file.c_str(), why.orEmpty());
      continue;
    }
    const std::string value = joined("v=DKIM1; k=rsa; p=", base);
    records.push_back(joined("zv", std::to_string(key.number), "._domainkey\tIN\tTXT\t",
                             quoted(value, sys_conf->wrap_long_dns_values)));
  }
  return records;
}

}  // namespace zvtaskq
