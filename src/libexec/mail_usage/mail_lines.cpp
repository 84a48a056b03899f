#include <algorithm>
#include <utility>

#include "libexec/mail_usage/mail_usage.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

/// Bytes of the longest line that is an e-mail's.
constexpr std::size_t kLongestLine = 4096;

bool isMailLine(std::string_view line, TallyRecord& record) {
  TallyLine parts;
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
  if (line.size() > kLongestLine || !readTallyLine(line, parts) || std::any_of(line.begin(), line.end(), isControl)) {
    return false;
  }
  record.read(parts.record);
  return record["type"] == "email";
}

std::size_t sharedBeginning(std::string_view a, std::string_view b) {
  const std::size_t size = std::min(a.size(), b.size());
  return static_cast<std::size_t>(
      std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(size), b.begin()).first - a.begin());
}

}  // namespace

MailLines takeMailLines(std::string_view text, bool isEnded, std::size_t most) {
  MailLines taken;
  TallyRecord record;
  while (taken.consumed < text.size() && taken.lines.size() < most) {
    const std::size_t end = text.find('\n', taken.consumed);
    if (end == std::string_view::npos && !isEnded) break;
    const std::string_view line = text.substr(taken.consumed, end - taken.consumed);
    taken.consumed = end == std::string_view::npos ? text.size() : end + 1;
    if (isMailLine(line, record)) {
      taken.lines.append(line).append("\n");
    } else if (!line.empty()) {
      ++taken.refused;
    }
  }
  return taken;
}

Written findWritten(std::string_view added, std::string_view block) {
  Written best;
  for (std::size_t at = 0; at < added.size();) {
    const std::string_view here = added.substr(at);
    const std::size_t shared = sharedBeginning(here, block);
    const std::size_t lastFeed = shared == 0 ? std::string_view::npos : block.rfind('\n', shared - 1);
    Written found;
    found.whole = lastFeed == std::string_view::npos ? 0 : lastFeed + 1;
    found.tornAt = at + found.whole;
    // What is cut short ends there, or was ended by who appended next.
    if (shared == here.size() || here[shared] == '\n') found.torn = shared - found.whole;
    // Nobody else writes lines of e-mails.
    if (found.whole > 0) return found;
    if (found.torn > best.torn) best = found;
    const std::size_t end = here.find('\n');
    at = end == std::string_view::npos ? added.size() : at + end + 1;
  }
  return best;
}

}  // namespace zvtaskq
