// Entering traffic that was read from a shared log into the tally files of the accounts it belongs to.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/read/log_mark.h"
#include "core/record/panel_file.h"

namespace zvtaskq {

/// What of one kind of log has been billed, kept so that a crash at any moment bills nothing twice and loses nothing.
///
/// The sums of an accounting and how far the logs were read for them are first written to one note, then entered line
/// by line and flushed to the disk, then the note is written again without the sums. A run that finds sums in the note
/// enters those whose line is not there yet: no two lines of a ledger carry the same second, but after a clock ran far
/// ahead. Notes stand in the folder "traffic" of the panel's own state.
///
/// Works as root, whose identity the caller has taken. An open ledger keeps those of other processes shut, and a crash
/// opens them again.
class TrafficLedger {
 public:
  /// The note's name, the file in the accounts' folders that lines are appended to, and the `type` they carry.
  TrafficLedger(const char* name, const char* file, const char* type);

  /// Reads the note and finishes what it leaves to do. 0 with an error-log line when another process has a ledger open,
  /// or the note or the accounts' folder cannot be read, or the note not be written: nothing may be billed then.
  [[nodiscard]] int open();

  /// Adds to what `enter` bills the account. What belongs to no account there was when the ledger was opened is
  /// nobody's: anybody may write names into a log, and they must not cost memory.
  void add(std::string_view account, unsigned long long bytes);

  /// How far a log was read last; the log is known by any name of the caller's.
  LogMark mark(const std::string& log) const;
  /// How far it has been read now. An empty mark forgets it.
  void setMark(const std::string& log, const LogMark& mark);

  /// Bills what was added: a line "<bytes>=type=<type>&time=<seconds>" in each account's file. What cannot be entered
  /// stays for the next time, what belongs to an account that is no more is dropped. 0 with an error-log line when the
  /// note cannot be written, and nothing is billed then, or when the lines cannot be flushed: the next ledger looks
  /// whether they are there.
  [[nodiscard]] int enter();

 private:
  [[nodiscard]] int writeNote();
  [[nodiscard]] int enterSums(bool afterCrash);
  [[nodiscard]] int dropEntered();
  bool enterLine(const std::string& account, unsigned long long bytes) const;
  std::string lineOf(unsigned long long bytes) const;

  /// Holds the lock.
  Descriptor folder_;
  std::string file_;
  std::string type_;
  PanelRecord note_;
  /// The accounts' names, sorted.
  std::vector<std::string> accounts_;
  std::map<std::string, unsigned long long, std::less<>> sums_;
  bool changed_ = false;
};

}  // namespace zvtaskq
