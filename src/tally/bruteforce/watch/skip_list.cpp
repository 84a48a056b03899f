#include "tally/bruteforce/watch/skip_list.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "core/panel/system_info.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr int kShown = 500;
constexpr int kOneLookUp = 5;
constexpr int kAllLookUps = 30;
constexpr std::size_t kMostAddresses = 1000;
/// Names that one address is tried by.
constexpr std::size_t kMostConfirmed = 4;

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c); });
  return lower;
}

/// The entries of a list without the blanks around them; empty ones are none.
template <class Visit>
void eachEntry(const ConfigFile& list, Visit visit) {
  for (long long i = 0; i < list.size(); ++i) {
    const char* name = list.getNameAt(i);
    const std::string entry(name == nullptr ? std::string_view() : trimmed(name));
    if (!entry.empty()) visit(entry);
  }
}

}  // namespace

// --- Entries ---------------------------------------------------------------------------------------------------

SkipList::SkipList(const ConfigFile& list) {
  eachEntry(list, [&](const std::string& entry) {
    names_.insert(entry);
    if (readNetwork(entry)) {
      addRange(entry);
    } else {
      addDomain(entry);
    }
  });
}

void SkipList::addRange(const std::string& entry) {
  const Network network = *readNetwork(entry);
  auto same = std::find_if(ranges_.begin(), ranges_.end(), [&](const Ranges& ranges) {
    return ranges.isIPv4 == network.isIPv4 && ranges.prefix == network.prefix;
  });
  if (same == ranges_.end()) same = ranges_.insert(same, {network.isIPv4, network.prefix, {}});
  same->entries.emplace(network.start, entry);
}

/// What a look-up could never answer with is not worth one.
void SkipList::addDomain(const std::string& entry) {
  std::string domain = lowerCase(entry);
  if (domain.front() != '*') {
    if (isValidDomain(domain.c_str())) domains_.insert(std::move(domain));
    return;
  }
  domain.erase(0, domain.starts_with("*.") ? 2 : 1);
  if (isValidDomain(joined("any.", domain).c_str())) wildcards_.emplace(std::move(domain), entry);
}

const std::string* SkipList::rangeOf(const char* name) const {
  const std::optional<Network> wanted = readNetwork(name);
  if (!wanted || wanted->prefix != Network::kAllBits) return nullptr;
  for (const Ranges& ranges : ranges_) {
    if (ranges.isIPv4 != wanted->isIPv4) continue;
    NetworkAddress start = wanted->start;
    mask(start, ranges.prefix);
    const auto found = ranges.entries.find(start);
    if (found != ranges.entries.end()) return &found->second;
  }
  return nullptr;
}

const std::string* SkipList::wildcardOf(std::string_view domain) const {
  for (std::size_t dot = domain.find('.'); dot != std::string_view::npos; dot = domain.find('.', dot + 1)) {
    const auto found = wildcards_.find(domain.substr(dot + 1));
    if (found != wildcards_.end()) return &found->second;
  }
  return nullptr;
}

// --- Look-ups --------------------------------------------------------------------------------------------------

/// Seconds that the next look-up may take, 0 when there has been enough of them.
int SkipList::secondsLeft() const {
  using std::chrono::seconds;
  const auto left = std::chrono::duration_cast<seconds>(seconds(kAllLookUps) - spent_).count();
  return static_cast<int>(std::clamp<long long>(left, 0, kOneLookUp));
}

template <class LookUp>
auto SkipList::timed(LookUp lookUp) {
  const auto start = std::chrono::steady_clock::now();
  auto found = lookUp(secondsLeft());
  spent_ += std::chrono::steady_clock::now() - start;
  return found;
}

bool SkipList::reversesToEntry(const char* address) {
  std::size_t tried = 0;
  for (const std::string& domain : timed([&](int seconds) { return resolveAddress(address, seconds); })) {
    const bool listed = domains_.contains(domain);
    const std::string* wildcard = listed ? nullptr : wildcardOf(domain);
    if (!listed && wildcard == nullptr) continue;
    if (++tried > kMostConfirmed || secondsLeft() == 0) return false;
    if (!timed([&](int seconds) { return resolvesTo(domain.c_str(), address, seconds); })) {
      debug(kShown, "%s reverses to %s, which does not resolve to it", address, domain.c_str());
    } else if (listed) {
      debug(kShown, "%s matches reverse IP lookup: %s", address, domain.c_str());
      return true;
    } else {
      debug(kShown, "%s reverses to %s, which is in wildcard %s", address, domain.c_str(), wildcard->c_str());
      return true;
    }
  }
  return false;
}

bool SkipList::lookUp(const char* address) {
  const auto known = answers_.find(address);
  if (known != answers_.end()) return known->second;
  if (secondsLeft() > 0 && answers_.size() < kMostAddresses) {
    return answers_.emplace(address, reversesToEntry(address)).first->second;
  }
  if (!saidEnough_) errorLog("The skip list's reverse look-ups take too long. From %s on there are none.", address);
  saidEnough_ = true;
  return false;
}

bool SkipList::contains(const char* name) {
  if (name == nullptr || *name == '\0' || names_.empty()) return false;
  if (names_.contains(std::string_view(name))) return true;
  if (!isValidIP(name)) return false;
  if (const std::string* range = rangeOf(name)) {
    debug(kShown, "%s is in range %s", name, range->c_str());
    return true;
  }
  return (!domains_.empty() || !wildcards_.empty()) && lookUp(name);
}

// --- Single questions ------------------------------------------------------------------------------------------

int is_in_skip_list(const char* name, const ConfigFile& list) {
  return SkipList(list).contains(name) ? 1 : 0;
}

int skip_list_contains_domain(const ConfigFile& list) {
  bool found = false;
  eachEntry(list, [&](const std::string& entry) {
    if (found || readNetwork(entry)) return;
    debug(kShown, "Tally::skip_list_contains_domain: by deduction, '%s' must be a domain.", entry.c_str());
    found = true;
  });
  return found ? 1 : 0;
}

}  // namespace zvtaskq
