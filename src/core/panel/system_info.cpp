#include "core/panel/system_info.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr int kHostNameTime = 10;
constexpr int kResolveTime = 15;
constexpr int kListingTime = 10;
constexpr const char* kListingCommand = "/usr/bin/top -b -n 1 -w 160";
constexpr std::size_t kLongestHostName = 512;
constexpr std::size_t kLongestNameAnswer = 64UL * 1024;
constexpr std::size_t kMostNames = 16;

bool isHostName(std::string_view host) {
  const auto fits = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_';
  };
  return !host.empty() && host.size() <= 253 && host.front() != '-' && host.front() != '.' &&
         std::all_of(host.begin(), host.end(), fits);
}

/// What the name service answers, in words. The C library's own look-up cannot be given up half way; a program that
/// does it can.
std::vector<std::string> askNameService(const char* database, const char* key, int seconds) {
  ChildPlan plan = ChildPlan::program("/usr/bin/getent", {database, key});
  plan.outputLimit = kLongestNameAnswer;
  plan.timeLimit = seconds;
  std::istringstream answer(runChild(plan).output);
  return {std::istream_iterator<std::string>(answer), std::istream_iterator<std::string>()};
}

/// Two written forms of one address are equal by it; an IPv6 address that stands for an IPv4 one equals that.
std::string addressKey(const char* text) {
  in6_addr six{};
  if (::inet_pton(AF_INET, text, six.s6_addr + 12) == 1) {
    six.s6_addr[10] = six.s6_addr[11] = 0xFF;
  } else if (::inet_pton(AF_INET6, text, &six) != 1) {
    return "";
  }
  return {reinterpret_cast<const char*>(six.s6_addr), sizeof six.s6_addr};
}

}  // namespace

std::string getHostName() {
  ChildPlan plan = ChildPlan::shell(kHostNameCommand);
  plan.outputLimit = kLongestHostName;
  plan.timeLimit = kHostNameTime;
  const std::string output = runChild(plan).output;
  return output.substr(0, output.find('\n'));
}

std::string resolveIPv4(const char* host) {
  if (host == nullptr || !isHostName(host)) return "";
  const std::vector<std::string> words = askNameService("ahostsv4", host, kResolveTime);
  return !words.empty() && isValidIPv4(words.front().c_str()) ? words.front() : "";
}

std::vector<std::string> resolveAddress(const char* address, int seconds) {
  std::vector<std::string> names;
  if (!isValidIP(address)) return names;
  for (std::string& word : askNameService("hosts", address, seconds)) {
    if (names.size() == kMostNames) break;
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c); });
    if (isValidDomain(word.c_str())) names.push_back(std::move(word));
  }
  return names;
}

bool resolvesTo(const char* host, const char* address, int seconds) {
  if (host == nullptr || !isHostName(host) || !isValidIP(address)) return false;
  // "hosts" holds the IPv6 addresses alone when there are both; "ahostsv6" leaves them out on a machine without any.
  const char* database = isValidIPv4(address) ? "ahostsv4" : "hosts";
  const std::vector<std::string> words = askNameService(database, host, seconds);
  const std::string wanted = addressKey(address);
  return std::any_of(words.begin(), words.end(),
                     [&](const std::string& word) { return addressKey(word.c_str()) == wanted; });
}

std::string getDeviceAddress(const char* device) {
  ifaddrs* found = nullptr;
  if (device == nullptr || ::getifaddrs(&found) != 0) return "";
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(found, ::freeifaddrs);
  for (const ifaddrs* one = all.get(); one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
    if (std::strcmp(one->ifa_name, device) != 0) continue;
    char text[INET_ADDRSTRLEN] = "";
    const auto* address = reinterpret_cast<const sockaddr_in*>(one->ifa_addr);
    ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
    return text;
  }
  return "";
}

std::string getProcessListing(int lines) {
  const Text& own = sys_conf->load_top_string;
  ChildPlan plan = ChildPlan::shell(own.isEmpty() ? kListingCommand : own.get());
  plan.identity = kRootIds;
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kListingTime;
  const std::string output = runChild(plan).output;
  std::string listing;
  std::string_view rest = output, line;
  for (int i = 0; i < lines && nextLine(rest, line); ++i) listing += printable(line) + '\n';
  return listing;
}

int getLoadAverage(double& one, double& five, double& fifteen) {
  double averages[3] = {};
  if (::getloadavg(averages, 3) != 3) return 0;
  one = averages[0];
  five = averages[1];
  fifteen = averages[2];
  return 1;
}

}  // namespace zvtaskq
