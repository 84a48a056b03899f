#include "core/system_info.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "core/names.h"
#include "core/process.h"

namespace zvtaskq {

namespace {

constexpr int kHostNameTime = 10;
constexpr int kResolveTime = 15;
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

int getLoadAverage(double& one, double& five, double& fifteen) {
  double averages[3] = {};
  if (::getloadavg(averages, 3) != 3) return 0;
  one = averages[0];
  five = averages[1];
  fifteen = averages[2];
  return 1;
}

}  // namespace zvtaskq
