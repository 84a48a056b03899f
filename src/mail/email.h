// The mail side of the accounts: vacation messages of mailboxes, and what the mail server has blocked.
#pragma once

#include <functional>
#include <string>

namespace zvtaskq {

class Config;
class ListFile;

/// What the text of a vacation message is kept as while the message is on, and while it is off, behind the mailbox's
/// name.
inline constexpr const char* kVacationOn = ".msg";
inline constexpr const char* kVacationOff = ".msg_off";

/// Works as the mail server's user, by descriptors that follow no link below `emailvirtual`, and leaves the process at
/// nobody. What goes wrong is told in the error log. In demonstration mode nothing is changed.
class Email {
 public:
  /// For the domains of the account `owner`; null for one that is not known.
  explicit Email(const char* owner) : owner_(owner == nullptr ? "" : owner) {}

  /// Switches a vacation message on: its text is put in the active place. Of two texts the one that was off counts.
  /// Returns 1 always.
  int activateVacation(const char* mailbox, const char* domain) const;
  /// Switches it off. Of two texts the one that was on counts. Returns 1 always.
  int disableVacation(const char* mailbox, const char* domain) const;
  /// Says of a mailbox and its entry in "vacation.conf", as it stands now, whether its vacation is over.
  using IsOver = std::function<bool(const char* mailbox, const char* window)>;
  /// Deletes both texts of each mailbox, and its entry in "vacation.conf", under the lock on that. With `isOver` only
  /// of those of which it says so then. 0 when any of it failed; the rest is done.
  int removeVacations(const ListFile& mailboxes, const char* domain, const IsOver& isOver = nullptr) const;

  /// Lifts what has been on a block list of the mail server for more than `block_cracking_unblock_minutes`: the
  /// accounts that were cracked (`blockType` 0), or the paths of abusive scripts (1). Entries without a time stay.
  static void check_block_cracking_auto_unblock(const Config* conf, int blockType);

 private:
  void moveText(const char* mailbox, const char* domain, const char* from, const char* to) const;
  int deleteTexts(const char* mailbox, const char* domain) const;
  /// Returns 0.
  int tellFailure(const char* what, const std::string& file, const char* domain) const;

  std::string owner_;
};

}  // namespace zvtaskq
