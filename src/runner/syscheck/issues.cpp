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

void Issues::add(Concern kind, std::string_view what, std::string_view remedy) {
  Kind& found = kinds_[static_cast<std::size_t>(kind)];
  if (isFull(kind)) {
    ++found.more;
  } else {
    found.lines.push_back(lineOf(what, remedy));
  }
}

bool Issues::isEmpty() const {
  return std::all_of(kinds_.begin(), kinds_.end(), [](const Kind& kind) { return kind.lines.empty(); });
}

std::string Issues::text() const {
  std::string text;
  for (std::size_t i = 0; i < kinds_.size(); ++i) {
    const Kind& kind = kinds_[i];
    if (kind.lines.empty()) continue;
    text += joined(text.empty() ? "" : "\n", kTitles[i], "\n", joinedWith("", kind.lines));
    if (kind.more > 0) text += joined("- and ", std::to_string(kind.more), " more\n");
  }
  return text;
}

}  // namespace zvtaskq
