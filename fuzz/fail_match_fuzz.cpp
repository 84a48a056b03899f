// One log line against the stock filters and one of the input's own: no address that is none, no account that is not in
// the line, and keys that a record can hold.
#include "core/text/names.h"
#include "support.h"
#include "tally/bruteforce/lines/address.h"
#include "tally/bruteforce/lines/match.h"
#include "tally/bruteforce/records/counts.h"

namespace {
void checkMatch(const BruteMatch& match, std::string_view line, const AddressTable& addresses) {
  require(match.attempts >= 0, "attempts");
  require(match.user.empty() || line.find(match.user) != std::string_view::npos, "account", match.user);
  if (match.address != NameTable::kNone) {
    const std::string address(addresses.clean().at(match.address));
    require(cleanAddress(address) == address, "address", address);
    require(isValidIP(address.c_str()) != 0, "address", address);
  } else {
    require(match.isMisplaced || match.isAmbiguous, "no address");
  }
  std::string room;
  const std::string key(bruteUserKey(match.user, room));
  if (key.empty()) return;
  ConfigFile record(nullptr), again(nullptr);
  record.setParam(key.c_str(), "1");
  again.readFromString((key + "=1\n").c_str());
  require(again.getValue(key.c_str()) != nullptr && again.size() == 1, "key", key);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const auto choice = static_cast<AddressChoice>(input.choice(3));
  const std::string rest = input.rest();
  const std::size_t cut = rest.find('\n');
  static const BruteFilters stock = [] {
    BruteFilters filters;
    filters.addStock();
    return filters;
  }();
  BruteFilters filters;
  std::string line = rest;
  if (cut != std::string::npos) {
    ConfigFile own(nullptr);
    own.setParam("own1", rest.substr(0, cut).c_str());
    filters.add(own);
    line = rest.substr(cut + 1);
  }
  std::vector<const BruteFilter*> all;
  for (const BruteFilter& filter : filters.all()) all.push_back(&filter);
  for (const BruteFilter& filter : stock.all()) all.push_back(&filter);
  AddressTable addresses;
  BruteMatch match;
  if (parseLine(all, BruteLine(line), choice, addresses, match)) checkMatch(match, line, addresses);
  return 0;
}
