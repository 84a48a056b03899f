#include "mail/server_tables.h"

#include <algorithm>
#include <set>

#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

struct Pair {
  explicit Pair(std::string_view line) {
    const std::size_t colon = std::min(line.find(':'), line.size());
    name = trimmed(line.substr(0, colon));
    value = trimmed(line.substr(std::min(colon + 1, line.size())));
  }
  std::string_view name, value;
};

}  // namespace

bool hasMailServer() {
  if (getUID(kMailUser) == kUnknownId || sys_conf->emailvirtual.isEmpty()) return false;
  const AsUser mail(kMailUser);
  return Descriptor(sys::open(sys_conf->emailvirtual.orEmpty(), O_PATH | O_DIRECTORY)).isOpen();
}

std::string mailFile(std::string_view name) {
  return joined(sys_conf->emailvirtual, "/", name);
}

int readMailTable(const char* table, MailPairs& pairs, Text& result) {
  const auto take = [&](std::string_view line) {
    const Pair pair(line);
    if (!pair.name.empty()) pairs.try_emplace(std::string(pair.name), pair.value);
  };
  return hasMailServer() ? readLinesOf(mailFile(table), idsOf(kMailUser), take, result) : 1;
}

int changeMailTable(const char* table, const MailPairs& wanted, const PicksPair& goes, Text& result) {
  if (!hasMailServer()) return 1;
  const std::string path = mailFile(table);
  std::set<std::string, std::less<>> there;
  bool isRight = true;
  const auto look = [&](std::string_view line) {
    const Pair pair(line);
    const auto found = wanted.find(pair.name);
    if (found == wanted.end()) {
      isRight &= !goes(pair.name, pair.value);
    } else {
      isRight &= pair.value == found->second && there.emplace(pair.name).second;
    }
  };
  if (!readLinesOf(path, idsOf(kMailUser), look, result)) return 0;
  if (isRight && there.size() == wanted.size()) return 1;
  const auto drop = [&](std::string_view line, std::string&) {
    const Pair pair(line);
    return wanted.contains(pair.name) || goes(pair.name, pair.value) ? LineFate::drop : LineFate::keep;
  };
  std::string lines;
  for (const auto& [name, value] : wanted) lines += joined(name, ": ", value, "\n");
  return editLines(path, idsOf(kMailUser), drop, lines, result);
}

int sayMailSuspended(std::string_view accountOrDomain, Text& result) {
  const char* incoming = sys_conf->allow_incoming_email_on_suspend ? "accept" : "refuse";
  const auto none = [](std::string_view, std::string_view) { return false; };
  return changeMailTable(kMailSuspended, {{std::string(accountOrDomain), incoming}}, none, result);
}

int sayMailActive(std::string_view accountOrDomain, Text& result) {
  const auto isIt = [&](std::string_view name, std::string_view) { return name == accountOrDomain; };
  return changeMailTable(kMailSuspended, {}, isIt, result);
}

}  // namespace zvtaskq
