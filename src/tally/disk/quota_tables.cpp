#include "tally/disk/quota_tables.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/state_folder.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/sys/sys.h"
#include "tally/disk/quota_report.h"
#include "tally/disk/quota_walk.h"

namespace zvtaskq {

namespace {

constexpr double kBlockBytes = 1024;
constexpr int kReportTime = 1800;
constexpr mode_t kOpenToAll = 01777;
constexpr mode_t kPermissionBits = 07777;
/// It ends so when one of several partitions has no quotas; the lines about the others are good.
constexpr int kSomeMissing = 1;
constexpr std::size_t kRandomLength = 16;

std::vector<std::string> partitionsOf(const Config& conf) {
  std::vector<std::string> all;
  std::string_view rest;
  const std::string list = joined(conf.quota_partition, ":", conf.ext_quota_partitions);
  for (rest = list; !rest.empty();) {
    const std::string_view one = rest.substr(0, rest.find(':'));
    rest.remove_prefix(one.size() + (one.size() < rest.size() ? 1 : 0));
    if (one.starts_with('/')) all.emplace_back(one);
  }
  return all;
}

/// A file of our own, which has no name any more when it is used: nobody can reach it, and no crash leaves it behind.
Descriptor openUnnamed(const std::string& path) {
  Descriptor file(sys::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (file && sys::unlink(path.c_str()) == 0) return file;
  errorLog("Unable to open %s: %s", path.c_str(), std::strerror(errno));
  return {};
}

/// The file for a report, among those that anybody may put there; without that folder, among the panel's own.
Descriptor openDump(const char* folder) {
  struct stat what {};
  const bool isThere = folder != nullptr && sys::lstat(folder, what) == 0;
  if (!isThere || (what.st_mode & kPermissionBits) != kOpenToAll) {
    errorLog(
        "*** Cannot find %s to use for temp repquota dump (usually /home/tmp).  You must create it and chmod to 1777",
        folder == nullptr ? "" : folder);
  }
  const std::string name = joined("quota-dump.", getRandText(kRandomLength));
  if (isThere && S_ISDIR(what.st_mode)) return openUnnamed(joined(folder, "/", name));
  return openStateFolder() ? openUnnamed(stateFile(name)) : Descriptor();
}

struct ReportTool {
  const char* program;
  std::vector<std::string> arguments;
  bool (*readRow)(std::string_view line, QuotaRow& row);
};

std::vector<ReportTool> reportsOf(const Config& conf) {
  const std::vector<std::string> partitions = partitionsOf(conf);
  std::vector<ReportTool> tools;
  if (!conf.use_xfs_quota) {
    // Times of grace as numbers: words would be translated.
    tools.push_back({conf.repquota, {"-u", "-p"}, readQuotaRow});
    tools.back().arguments.insert(tools.back().arguments.end(), partitions.begin(), partitions.end());
    return tools;
  }
  for (const std::string& partition : partitions) {
    tools.push_back({conf.xfs_quota, {"-x", "-c", "report -u -b -i -N", partition}, readXfsQuotaRow});
  }
  return tools;
}

/// Runs the tool into the file.
int dumpReport(const ReportTool& tool, int dump) {
  ChildPlan plan = ChildPlan::program(tool.program, tool.arguments);
  plan.identity = kRootIds;
  plan.outputDescriptor = dump;
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kReportTime;
  const ChildResult child = runChild(plan);
  if (child.timedOut) errorLog("%s gave no answer within %d seconds", tool.program, kReportTime);
  return child.timedOut || child.status < 0 || child.status > kSomeMissing || ::lseek(dump, 0, SEEK_SET) != 0 ? 0 : 1;
}

int readReport(const ReportTool& tool, const char* folder, SpaceByUser& used) {
  const Descriptor dump = openDump(folder);
  if (!dump || !dumpReport(tool, dump.get())) return 0;
  LineReader reader(dump.get());
  int rows = 0;
  QuotaRow row;
  for (std::string_view line; reader.next(line);) {
    if (!tool.readRow(line, row)) continue;
    ++rows;
    const std::string user(row.user);
    if (row.isOver) errorLog("Over quota detected for User %s", user.c_str());
    // A user has something on each of several partitions.
    UsedSpace& sum = used[user];
    sum.blocks += row.used.blocks;
    sum.inodes += row.used.inodes;
  }
  return reader.failed() ? 0 : rows;
}

/// All reports together. 0 when one of them says nothing.
int readReports(const Config& conf, SpaceByUser& used) {
  const AsRoot root;
  for (const ReportTool& tool : reportsOf(conf)) {
    if (!pathExists(tool.program, PathKind::file)) return 0;
    if (!readReport(tool, conf.tmpdir, used)) return 0;
  }
  return 1;
}

}  // namespace

QuotaTables& quotaTables() {
  static QuotaTables tables;
  return tables;
}

int getAllQuotas(const Config* conf, ConfigFile& quotas, ConfigFile& inodes, const std::vector<std::string>& accounts) {
  SpaceByUser used;
  int whole = !conf->disable_quota && readReports(*conf, used) ? 1 : 0;
  if (!whole) {
    // What a first report said would be counted twice.
    used.clear();
    whole = accounts.empty() ? countByOwner(partitionsOf(*conf), used) : countHomes(accounts, used);
  }
  quotas.empty();
  inodes.empty();
  for (const auto& [user, space] : used) {
    quotas.setParam(user.c_str(), space.blocks);
    inodes.setParam(user.c_str(), space.inodes);
  }
  return whole;
}

double getDiskUsage(const ConfigFile* quotas, const char* name) {
  double blocks = 0;
  if (quotas == nullptr || !quotas->getValue(name, &blocks)) return 0;
  return blocks * kBlockBytes;
}

long long getInodes(const ConfigFile* inodes, const char* name) {
  long long count = 0;
  if (inodes == nullptr || !inodes->getValue(name, &count)) return 0;
  return count;
}

}  // namespace zvtaskq
