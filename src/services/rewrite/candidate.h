// What a rewrite of a service's configuration is made of, and what the service's own check is asked about it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/sys/identity.h"

namespace zvtaskq {

/// Stands for a file's path in its entry of the list.
inline constexpr std::string_view kPlace = "|PLACE|";
/// What a file is called, behind its path, until the check has judged it. No server may read files by that ending.
inline constexpr const char* kCandidateEnding = ".candidate";

/// Whose a file is. What has the same account and part stands or falls together: it goes live as a whole, or none of it
/// does. Files that no account is to blame for have an empty account.
struct Origin {
  std::string account;
  /// What of the account, such as a domain; empty when the account is one thing to the service. Without blanks.
  std::string part;
  auto operator<=>(const Origin&) const = default;
};

/// "bob", "bob bob.example", or "the server": for messages.
std::string nameOf(const Origin& origin);

/// A file as a rewrite would have it.
struct Candidate {
  Origin origin;
  /// Where it goes: an absolute path without line feeds, in a folder that no account can write to. No other candidate
  /// of the rewrite has the same.
  std::string path;
  std::string text;
  Ids owner{};
  mode_t mode = 0640;
  /// The lines by which the list names it to the server, `kPlace` standing for its path; empty when it needs none.
  std::string entry = {};
};

/// An entry with a path where `kPlace` stands.
std::string withPlace(std::string_view entry, std::string_view path);

/// A file that is to be judged, and where it can be read now.
struct TrialFile {
  Origin origin;
  std::string path;
  std::string place;
};

/// The configuration as the server would find it.
struct Trial {
  /// The candidates in question; none when it is the rest of the configuration that is asked about.
  std::vector<const TrialFile*> fresh;
  /// Where the list can be read now, each file in it at the place where it can be read now; empty when the service has
  /// none. It holds what stands already, the candidates that have passed, and those in question; or the last alone,
  /// when the plan says so (`judgesAlone`).
  std::string list;
};

enum class Verdict {
  good,
  bad,
  /// Nothing can be said: the program is missing, did not end in time, was killed.
  unknown,
};

/// Lets the server itself judge, and sets `words` to what it says when that is not good. Called as root.
using Check = std::function<Verdict(const Trial& trial, std::string& words)>;

}  // namespace zvtaskq
