// Which of the changes of a rewrite go live: the service's own check decides, asked as seldom as can be.
#include <algorithm>

#include "core/panel/marks.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "notify/ticket.h"
#include "services/rewrite/rewrite.h"

namespace zvtaskq {

namespace {

/// The most that one rewrite asks: who makes more bad files than can be told apart so does not hold the run up.
constexpr int kMostChecks = 1000;
constexpr std::size_t kLongestWords = 2000;
constexpr std::size_t kLongestNotice = 64UL << 10;

std::string shortened(const std::string& words) {
  const std::string_view text = trimmed(words);
  return std::string(text.substr(0, kLongestWords));
}

void tell(const std::string& subject, const std::string& message) {
  // A ticket leaves nobody's identity.
  const AsRoot root;
  Ticket ticket;
  constexpr int kGeneral = 1;
  static_cast<void>(ticket.notifyAdmins("", subject.c_str(), message.c_str(), kGeneral));
}

}  // namespace

void tellUnchanged(const std::string& name, const std::string& words, std::string_view why) {
  constexpr std::string_view kLineEnd = "<br>\n";
  if (why.ends_with(kLineEnd)) why.remove_suffix(kLineEnd.size());
  const std::string mark = joined("rewrite_", name);
  if (isDueAgain(mark.c_str(), fingerprintOf(why))) tell(joined("The ", words, " cannot be changed"), std::string(why));
}

Verdict Rewrite::judge(const Changes& fresh, std::string& words) {
  EntryList list = plan_.judgesAlone ? EntryList() : list_;
  Trial trial;
  const auto place = [&](const Change& change, bool isFresh) {
    for (std::size_t i = 0; i < change.files.size(); ++i) {
      const TrialFile& file = change.files[i];
      if (isFresh) trial.fresh.push_back(&file);
      if (change.entries[i].empty()) continue;
      list.entries()[file.path] = {change.origin, withPlace(change.entries[i], file.place)};
    }
  };
  for (const Change* change : accepted_) {
    if (!plan_.judgesAlone) place(*change, false);
  }
  for (const Change* change : fresh) place(*change, true);
  ++checks_;
  words.clear();
  atSafePoint();
  const AsRoot root;
  if (!plan_.list.path.empty()) {
    Text why;
    const std::string text = joined(list.text(plan_.list.head), fresh.empty() ? plan_.sample : "");
    if (!journal_.stage({plan_.list.path, text, plan_.list.owner, plan_.list.mode}, why)) {
      words = why.orEmpty();
      return Verdict::unknown;
    }
    trial.list = plan_.list.path + kCandidateEnding;
  }
  return plan_.check(trial, words);
}

void Rewrite::refuseChange(const Change& change, const std::string& words) {
  const Origin origin = change.origin;
  notes_.add(origin, fingerprintOf(change.texts));
  const std::string said = shortened(words);
  errorLog("%s is left out of the %s: %s", nameOf(origin).c_str(), plan_.words.c_str(), said.c_str());
  if (told_.size() < kLongestNotice) told_.append(joined(nameOf(origin), ":\n", said, "\n\n"));
  leaveOut(origin);
}

/// The changes are bad together with what was accepted so far; each of them ends accepted or left out.
Verdict Rewrite::sift(const Changes& bad, const std::string& words) {
  if (bad.size() == 1) {
    refuseChange(*bad.front(), words);
    return Verdict::good;
  }
  const auto middle = bad.begin() + static_cast<std::ptrdiff_t>(bad.size() / 2);
  for (const Changes& half : {Changes(bad.begin(), middle), Changes(middle, bad.end())}) {
    std::string why;
    if (checks_ >= kMostChecks) {
      errorLog("%zu changes of the %s are left for another run: too many are bad", half.size(), plan_.words.c_str());
      for (const Change* change : half) leaveOut(Origin(change->origin));
      continue;
    }
    const Verdict verdict = judge(half, why);
    if (verdict == Verdict::good) accepted_.insert(half.begin(), half.end());
    if (verdict == Verdict::bad && sift(half, why) == Verdict::unknown) return Verdict::unknown;
    if (verdict == Verdict::unknown) {
      addResult(result, shortened(why));
      return verdict;
    }
  }
  return Verdict::good;
}

int Rewrite::judgeAll() {
  std::vector<Origin> known;
  Changes all;
  for (auto& [origin, change] : changes_) {
    if (notes_.holds(origin, fingerprintOf(change.texts))) {
      known.push_back(origin);
    } else {
      all.push_back(&change);
    }
  }
  for (const Origin& origin : known) leaveOut(origin);
  std::string words;
  const Verdict verdict = all.empty() || plan_.check == nullptr ? Verdict::good : judge(all, words);
  if (verdict == Verdict::good) {
    accepted_.insert(all.begin(), all.end());
    return 1;
  }
  // What is not the accounts' fault is none of theirs.
  std::string rest;
  const Verdict without = verdict == Verdict::unknown ? verdict : judge({}, rest);
  if (without == Verdict::good) return sift(all, words) == Verdict::good ? 1 : 0;
  const std::string why = shortened(rest.empty() ? words : rest);
  tellUnchanged(plan_.name, plan_.words, why);
  return fail(result, why);
}

void Rewrite::tellAdministrators() {
  if (told_.empty()) return;
  tell(joined("Accounts were left out of the ", plan_.words), told_);
}

}  // namespace zvtaskq
