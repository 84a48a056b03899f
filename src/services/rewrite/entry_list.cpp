#include "services/rewrite/entry_list.h"

#include <utility>

namespace zvtaskq {

namespace {

constexpr std::string_view kMark = "# file ";
constexpr std::string_view kOf = " of ";

std::string_view nextLine(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

/// The path and origin of a mark. False for any other line.
bool readMark(std::string_view line, std::string& path, Origin& origin) {
  const std::size_t of = line.rfind(kOf);
  if (!line.starts_with(kMark) || of == std::string_view::npos || of <= kMark.size()) return false;
  path = line.substr(kMark.size(), of - kMark.size());
  const std::string_view whose = line.substr(of + kOf.size());
  const std::size_t blank = whose.find(' ');
  origin.account = whose.substr(0, blank);
  origin.part = blank == std::string_view::npos ? std::string_view() : whose.substr(blank + 1);
  return true;
}

}  // namespace

std::string withPlace(std::string_view entry, std::string_view place) {
  std::string text;
  for (std::size_t at = entry.find(kPlace); at != std::string_view::npos; at = entry.find(kPlace)) {
    text.append(entry.substr(0, at)).append(place);
    entry.remove_prefix(at + kPlace.size());
  }
  return text.append(entry);
}

void EntryList::read(std::string_view text) {
  Entry* entry = nullptr;
  std::string path;
  Origin origin;
  while (!text.empty()) {
    const std::string_view line = nextLine(text);
    if (readMark(line, path, origin)) {
      entry = &(entries_[path] = {origin, ""});
    } else if (entry != nullptr) {
      entry->text.append(line) += '\n';
    }
  }
}

std::string EntryList::text(std::string_view head) const {
  std::string all(head);
  for (const auto& [path, entry] : entries_) {
    all.append(kMark).append(path).append(kOf).append(entry.origin.account);
    if (!entry.origin.part.empty()) all.append(" ").append(entry.origin.part);
    all.append("\n").append(entry.text);
  }
  return all;
}

}  // namespace zvtaskq
