#include "services/rewrite/left_out.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "core/panel/marks.h"
#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::uint64_t kHashStart = 14695981039346656037ULL;
constexpr std::uint64_t kHashStep = 1099511628211ULL;

Origin originOf(std::string_view name) {
  const std::size_t blank = name.find(' ');
  if (blank == std::string_view::npos) return {std::string(name), ""};
  return {std::string(name.substr(0, blank)), std::string(name.substr(blank + 1))};
}

std::string keyOf(const Origin& origin) {
  return origin.part.empty() ? origin.account : joined(origin.account, " ", origin.part);
}

}  // namespace

std::string nameOf(const Origin& origin) {
  return origin.account.empty() ? "the server" : keyOf(origin);
}

std::string fingerprintOf(std::string_view text) {
  std::uint64_t hash = kHashStart;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * kHashStep;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

std::string LeftOutNotes::path() const {
  return stateFile(joined("rewrites/", name_, ".left_out"));
}

void LeftOutNotes::read() {
  PanelRecord record(path());
  if (!record.readFile()) return;
  for (long long i = 0; i < record.size(); ++i) {
    const std::string_view value = text_detail::part(record.getValueAt(i));
    Note note;
    const char* end = value.data() + value.size();
    const char* behind = std::from_chars(value.data(), end, note.stamp).ptr;
    if (behind == end || *behind != ' ') continue;
    note.fingerprint.assign(behind + 1, end);
    notes_[originOf(text_detail::part(record.getNameAt(i)))] = std::move(note);
  }
}

bool LeftOutNotes::holds(const Origin& origin, const std::string& fingerprint) const {
  const auto found = notes_.find(origin);
  if (found == notes_.end() || found->second.fingerprint != fingerprint) return false;
  return ageOf(found->second.stamp, std::time(nullptr)).seconds < kMarkInterval;
}

void LeftOutNotes::add(const Origin& origin, const std::string& fingerprint) {
  notes_[origin] = {std::time(nullptr), fingerprint};
  changed_ = true;
}

void LeftOutNotes::remove(const Origin& origin) {
  if (notes_.erase(origin) > 0) changed_ = true;
}

void LeftOutNotes::keepOnly(const std::set<Origin>& origins) {
  if (std::erase_if(notes_, [&](const auto& note) { return !origins.contains(note.first); }) > 0) changed_ = true;
}

void LeftOutNotes::write() {
  if (!changed_) return;
  PanelRecord record(path());
  for (const auto& [origin, note] : notes_) {
    record.setParam(keyOf(origin).c_str(), joined(std::to_string(note.stamp), " ", note.fingerprint).c_str());
  }
  if (!record.writeFile()) errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
  changed_ = false;
}

}  // namespace zvtaskq
