// Rewriting the configuration of a service from the data of the accounts: the one way, for every service.
//
//   Rewrite rewrite({.name = "zones", .words = "DNS zones", .list = ..., .check = ...});
//   if (!rewrite.begin()) ...                       // finishes or takes away what a killed run left
//   for each account: rewrite.offer(...), rewrite.refuse(...) or rewrite.keep(...)
//   rewrite.finish()                                // check, put in place, tell, queue the follow-up
//
// - What is offered is compared with the file that stands there, which is read once; what is the same is not written.
//   What has changed is written beside it at once, under the name with `kCandidateEnding`, so that no more than one
//   text is in memory.
// - The service's check judges all that has changed in one call. When that fails, the changed origins are halved until
//   the bad ones are found. A bad one is left out: its old files stay, the administrators are told once with the words
//   of the check, and it is tried again when its data gives another text, or after a day.
// - What is good is put in place together: after one flush of the file system a journal names every file, and from then
//   on the change counts. Who is killed before leaves the old files, who is killed after has the rest done by the next
//   run of any kind (`finishKilledRewrites`).
//
// Only one process rewrites a service at a time; no account's lock is taken: records are replaced as a whole, and what
// changes after it was read queues a rewrite of its own.
#pragma once

#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/text/text.h"
#include "services/rewrite/candidate.h"
#include "services/rewrite/entry_list.h"
#include "services/rewrite/journal.h"
#include "services/rewrite/left_out.h"

namespace zvtaskq {

struct RewritePlan {
  /// Of its state files: one word.
  std::string name;
  /// What is rewritten, in words: "DNS zones".
  std::string words;
  /// Judges the candidates; null when there is nothing to ask.
  Check check = nullptr;
  /// The file that names the accounts' files to the server; no path when there is none.
  ListPlace list = {};
  /// Lines that stand for an entry when the rest of the configuration is asked about: what all entries have in common
  /// is no account's fault.
  std::string sample = {};
  /// No file depends on another: the check is asked about those in question alone.
  bool judgesAlone = false;
  /// Everything is rewritten: what the list has of an origin that was not named in this rewrite goes, and so do its
  /// files. When not, what was not named stays.
  bool isWhole = false;
  /// The queue line that makes the server read what was put in place; no action when there is none.
  FollowUp followUp = {};
};

struct RewriteCounts {
  long long unchanged = 0;
  long long written = 0;
  long long removed = 0;
  /// Origins that were left out by the check or refused.
  long long leftOut = 0;
};

/// Tells the administrators that nothing of it could be changed (`name` and `words` as in the plan), and why: once
/// until that is another, or a day has passed. May be called under any identity, which is the same afterwards.
void tellUnchanged(const std::string& name, const std::string& words, std::string_view why);

class Rewrite {
 public:
  explicit Rewrite(RewritePlan plan);
  /// Takes away the candidates that were not put in place.
  ~Rewrite();
  Rewrite(const Rewrite&) = delete;
  Rewrite& operator=(const Rewrite&) = delete;

  // All of these work as root, whatever identity they find, and give that back.

  /// Waits a minute for another process that rewrites the same. 0 with the reason in `result`.
  [[nodiscard]] int begin();
  /// The list as it stands.
  const EntryList& list() const { return list_; }
  /// What stands at a path now, for a text that keeps something of it; null when there is nothing that can be
  /// read. It is the text that an offer for the same path is compared with. What belongs to neither root nor the
  /// panel's user is not read, and whoever is offered in its place is left out. Valid until the next call.
  const std::string* present(const std::string& path);
  /// One file. When it cannot be read or written its origin is left out, which the error log is told.
  void offer(Candidate candidate);
  /// A value of the account's data that cannot be told from an attempt to leave its place: the origin is left out, its
  /// files stay as they are. Error log "<origin>: <field> is refused: <why>".
  void refuse(const Origin& origin, const std::string& field, const std::string& why);
  /// The data of the origin could not be read, which the error log knows already: what stands stays, whatever was or is
  /// offered of it.
  void keep(const Origin& origin);
  /// The same for everything of an account, named or not.
  void keepAccount(const std::string& account);

  /// The data says that there is nothing of the origin any more: its files go. What `isWhole` implies for all.
  void drop(const Origin& origin);
  /// Whether anything of the origin was offered or is to be dropped.
  bool isNamed(const Origin& origin) const { return named_.contains(origin); }

  /// Lets the check judge, and puts in place what is good. 0 with the reason in `result` when nothing was put in place
  /// because something else than an origin is to blame: the old files stay. The follow-up is queued when anything was
  /// changed. What was left out is no failure.
  [[nodiscard]] int finish();

  /// Whether something was put in place, and so the follow-up queued.
  bool hasChanged() const { return hasChanged_; }
  /// The files that were removed.
  const std::vector<std::string>& removed() const { return removed_; }
  const RewriteCounts& counts() const { return counts_; }
  Text result;

 private:
  /// What has changed of an origin.
  struct Change {
    Origin origin;
    std::vector<TrialFile> files;
    /// The entries as they are offered, one for each file.
    std::vector<std::string> entries;
    std::string texts;
  };
  using Changes = std::vector<Change*>;

  bool readPresent(const char* path);
  void leaveOut(const Origin& origin);
  void noteEntry(const Candidate& candidate);
  [[nodiscard]] int judgeAll();
  Verdict judge(const Changes& fresh, std::string& words);
  Verdict sift(const Changes& bad, const std::string& words);
  void refuseChange(const Change& change, const std::string& words);
  /// Takes back what was offered of an origin.
  void withdraw(const Origin& origin);
  bool stays(const Origin& origin) const;
  void settleEntries();
  [[nodiscard]] int stageList();
  [[nodiscard]] int putInPlace();
  void tellAdministrators();

  RewritePlan plan_;
  RewriteJournal journal_;
  LeftOutNotes notes_;
  /// The list as it stands; after the judgment, as it will.
  EntryList list_;
  RewriteCounts counts_;
  std::map<Origin, Change> changes_;
  std::set<const Change*> accepted_;
  /// The entries of what was offered, by path.
  std::map<std::string, Entry> offered_;
  std::set<Origin> named_;
  std::set<Origin> staying_;
  std::set<std::string> stayingAccounts_;
  std::vector<std::string> put_;
  std::vector<std::string> removed_;
  std::string told_;
  int checks_ = 0;
  std::string presentPath_;
  std::string presentText_;
  struct stat presentFile_ {};
  bool isPresent_ = false;
  bool hasChanged_ = false;
  /// Why what stands there cannot be read; empty when it can, and when there is nothing.
  std::string unreadable_;
};

}  // namespace zvtaskq
