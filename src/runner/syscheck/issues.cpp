#include "runner/syscheck/issues.h"

#include <algorithm>

#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::array<const char*, static_cast<std::size_t>(Concern::count)> kTitles = {
    "Services",        "Open files", "Settings", "Files and folders",
    "Templates",       "Accounts",   "Records",  "Certificates",
    "Unfinished work", "Clock",      "Space",
};

std::string lineOf(std::string_view what, std::string_view remedy) {
  std::string line = joined("- ", printable(what), ": ", printable(remedy));
  if (line.size() > Issues::kLongestLine) line.replace(Issues::kLongestLine, std::string::npos, "...");
  return line + ".\n";
}

}  // namespace

void Issues::add(Concern kind, std::string_view what, std::string_view remedy, std::string_view account) {
  Kind& found = kinds_[static_cast<std::size_t>(kind)];
  if (found.lines.size() >= kMostOfAKind) {
    ++found.more;
    const auto spare = lineToSpare(found);
    const std::size_t own = account.empty() ? 0 : countOf(found, account);
    if (spare == found.lines.end() || own + 1 >= countOf(found, spare->account)) return;
    found.lines.erase(spare);
  }
  found.lines.push_back({lineOf(what, remedy), std::string(account)});
}

bool Issues::isFull(Concern kind) const {
  const Kind& found = kinds_[static_cast<std::size_t>(kind)];
  return found.lines.size() >= kMostOfAKind && lineToSpare(found) == found.lines.end();
}

std::size_t Issues::countOf(const Kind& kind, std::string_view account) {
  return static_cast<std::size_t>(
      std::count_if(kind.lines.begin(), kind.lines.end(), [&](const Line& line) { return line.account == account; }));
}

std::vector<Issues::Line>::const_iterator Issues::lineToSpare(const Kind& kind) {
  auto spare = kind.lines.end();
  std::size_t most = 1;
  for (auto line = kind.lines.begin(); line != kind.lines.end(); ++line) {
    const std::size_t count = line->account.empty() ? 0 : countOf(kind, line->account);
    if (count < 2 || count < most) continue;
    most = count;
    spare = line;
  }
  return spare;
}

bool Issues::isEmpty() const {
  return std::all_of(kinds_.begin(), kinds_.end(), [](const Kind& kind) { return kind.lines.empty(); });
}

std::string Issues::text() const {
  std::string text;
  for (std::size_t i = 0; i < kinds_.size(); ++i) {
    const Kind& kind = kinds_[i];
    if (kind.lines.empty()) continue;
    text += joined(text.empty() ? "" : "\n", kTitles[i], "\n");
    for (const Line& line : kind.lines) text += line.text;
    if (kind.more > 0) text += joined("- and ", std::to_string(kind.more), " more\n");
  }
  return text;
}

}  // namespace zvtaskq
