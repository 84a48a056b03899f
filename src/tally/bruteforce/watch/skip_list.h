// The names that the brute-force monitor never reports.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tally/bruteforce/lines/network.h"

namespace zvtaskq {

class ConfigFile;

/// The skip list, parsed once for many questions. Each name of the record (its values do not matter) is
/// - an address or an account: itself, an address in whatever form it is written,
/// - a range in CIDR form ("192.0.2.0/24", "2001:db8::/32"): the addresses in it, of its own kind,
/// - a domain ("office.example"): the addresses that this name belongs to,
/// - a wildcard ("*.office.example"): those that any name below that domain belongs to.
///
/// An attacker writes into the reverse zone of his address what he likes. So a name found there counts only when it is
/// a valid domain and itself resolves to the address, which takes the consent of the domain's owner.
///
/// Look-ups are made only when an entry could be their outcome, under any identity, once for each address; each takes
/// at most 5 seconds, and all of one list 30 seconds and 1000 addresses. What is not looked up is not skipped: better
/// one notice too many.
class SkipList {
 public:
  explicit SkipList(const ConfigFile& list);
  SkipList(const SkipList&) = delete;
  SkipList& operator=(const SkipList&) = delete;

  /// Whether the address or account is on the list. Null and empty are not.
  bool contains(const char* name);

 private:
  /// Addresses of one kind that begin with the same number of bits, by the first one of each.
  struct Ranges {
    bool isIPv4;
    int prefix;
    std::map<NetworkAddress, std::string> entries;
  };

  void addRange(const std::string& entry);
  void addDomain(const std::string& entry);
  const std::string* rangeOf(const char* name) const;
  const std::string* wildcardOf(std::string_view domain) const;
  int secondsLeft() const;
  template <class LookUp>
  auto timed(LookUp lookUp);
  bool reversesToEntry(const char* address);
  bool lookUp(const char* address);

  std::set<std::string, std::less<>> names_;
  std::vector<Ranges> ranges_;
  std::set<std::string, std::less<>> domains_;
  /// From the domain behind "*." to the text of its entry.
  std::map<std::string, std::string, std::less<>> wildcards_;
  /// What was found out about an address, for good.
  std::unordered_map<std::string, bool> answers_;
  std::chrono::steady_clock::duration spent_{};
  bool saidEnough_ = false;
};

/// One question to a list that is parsed for it alone. 1 when the name is on the list, as `SkipList::contains`.
int is_in_skip_list(const char* name, const ConfigFile& list);

/// 1 when the list holds an entry that is neither an address nor a range and so must be a domain; 0 for an empty list.
int skip_list_contains_domain(const ConfigFile& list);

}  // namespace zvtaskq
