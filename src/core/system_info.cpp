#include "core/system_info.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "core/config.h"
#include "core/line_reader.h"
#include "core/names.h"
#include "core/process.h"
#include "core/system_layer.h"

namespace zvtaskq {

namespace {

constexpr int kHostNameTime = 10;
constexpr int kResolveTime = 15;
constexpr int kListingTime = 10;
constexpr const char* kListingCommand = "/usr/bin/top -b -n 1 -w 160";
constexpr std::size_t kLongestHostName = 512;

bool isHostName(std::string_view host) {
  const auto fits = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_';
  };
  return !host.empty() && host.size() <= 253 && host.front() != '-' && host.front() != '.' &&
         std::all_of(host.begin(), host.end(), fits);
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
  // The C library's own look-up cannot be given up half way; a program that does it can.
  ChildPlan plan = ChildPlan::program("/usr/bin/getent", {"ahostsv4", host});
  plan.timeLimit = kResolveTime;
  const std::string output = runChild(plan).output;
  const std::string address = output.substr(0, output.find(' '));
  return isValidIPv4(address.c_str()) ? address : "";
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
