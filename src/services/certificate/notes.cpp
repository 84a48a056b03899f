#include "services/certificate/notes.h"

#include <charconv>

#include "core/panel/state_folder.h"
#include "core/sys/log.h"
#include "core/text/split.h"
#include "services/certificate/renewal.h"

namespace zvtaskq {

namespace {

constexpr const char* kFile = "certificates";

std::vector<long long> timesIn(std::string_view list, long long now) {
  std::vector<long long> times;
  for (const std::string_view word : wordsIn(list, ',')) {
    long long time = 0;
    const auto [behind, error] = std::from_chars(word.data(), word.data() + word.size(), time);
    const bool isOne = error == std::errc() && behind == word.data() + word.size();
    if (isOne && time <= now && now - time < kWeek) times.push_back(time);
  }
  return times;
}

}  // namespace

CertificateNotes::CertificateNotes() : record_(stateFile(kFile)) {}

void CertificateNotes::read(long long now) {
  now_ = now;
  if (!openStateFolder() || !record_.exists()) return;
  if (!record_.readFile()) errorLog("%s: %s", record_.getFilename(), record_.result.orEmpty());
}

CertificateNote CertificateNotes::get(const std::string& name) const {
  CertificateNote note;
  ConfigFile record(nullptr);
  record.fillFromPost(record_.getValue(name.c_str()));
  record.getValue("failures", &note.failures);
  record.getValue("next", &note.next);
  record.getValue("told", &note.told);
  note.asked = timesIn(record.getOrEmpty("asked"), now_);
  if (note.next > now_ + kWeek) note.next = 0;
  return note;
}

void CertificateNotes::put(const std::string& name, const CertificateNote& note) {
  std::vector<std::string> asked;
  for (const long long time : note.asked) asked.push_back(std::to_string(time));
  ConfigFile record(nullptr);
  if (note.failures != 0) record.setParam("failures", note.failures);
  if (note.next != 0) record.setParam("next", note.next);
  if (note.told != 0) record.setParam("told", note.told);
  if (!asked.empty()) record.setParam("asked", joinedWith(",", asked).c_str());
  if (record.size() == 0) {
    record_.deleteParam(name.c_str());
  } else {
    record_.setParam(name.c_str(), record.createPostString(0).orEmpty());
  }
}

void CertificateNotes::keepOnly(const std::set<std::string>& names) {
  for (long long i = record_.size() - 1; i >= 0; --i) {
    const std::string name = record_.getNameAt(i);
    if (!names.contains(name)) record_.deleteParam(name.c_str());
  }
}

int CertificateNotes::write() {
  if (!openStateFolder() || !record_.writeFile()) {
    errorLog("%s: %s", record_.getFilename(), record_.result.orEmpty());
    return 0;
  }
  return 1;
}

}  // namespace zvtaskq
