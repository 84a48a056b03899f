#include <cerrno>

#include "account/suspension/account_jobs.h"
#include "core/files/line_edit.h"
#include "core/panel/panel_paths.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr const char* kCrontab = "/usr/bin/crontab";
constexpr const char* kAtJobs = "/var/spool/cron/atjobs";
/// What tells an account without a crontab from one whose crontab cannot be read.
constexpr std::string_view kNone = "no crontab for";

std::string keptFile(const AccountHolder& holder) {
  return accountFile(holder.name.c_str(), "crontab.conf");
}

bool mayHaveOne(const AccountHolder& holder) {
  return holder.isPerson() && toolExists(kCrontab);
}

struct Crontab {
  bool exists = false;
  bool isCut = false;
  std::string lines;
};

int readInstalled(const AccountHolder& holder, Crontab& crontab, Text& result) {
  if (!mayHaveOne(holder)) return 1;
  ToolAnswer answer = runTool(kCrontab, {"-u", holder.name, "-l"});
  if (answer.status == 1 && answer.output.find(kNone) != std::string::npos) return 1;
  if (!answer.succeeded()) return fail(result, "Unable to read the crontab of ", holder.name, ": ", answer.words);
  crontab = {true, answer.isCut, std::move(answer.output)};
  return 1;
}

}  // namespace

int readCrontab(const AccountHolder& holder, bool& exists, std::string& lines, Text& result) {
  Crontab crontab;
  const int read = readInstalled(holder, crontab, result);
  exists = crontab.exists;
  lines = std::move(crontab.lines);
  return read;
}

int holdCrontab(const AccountHolder& holder, Text& result) {
  Crontab crontab;
  if (!readInstalled(holder, crontab, result)) return 0;
  if (!crontab.exists) return 1;
  if (crontab.isCut) {
    errorLog("The crontab of %s is larger than any, and is not kept", holder.name.c_str());
  } else if (!writeWhole(keptFile(holder), idsOf(kPanelUser), crontab.lines, 0600, result)) {
    return 0;
  }
  return removeCrontab(holder, result);
}

int releaseCrontab(const AccountHolder& holder, Text& result) {
  std::string lines;
  if (!mayHaveOne(holder)) return 1;
  if (!readWhole(keptFile(holder), idsOf(kPanelUser), lines, result)) return 0;
  return lines.empty() || useTool(kCrontab, {"-u", holder.name, "-"}, result, lines);
}

int removeCrontab(const AccountHolder& holder, Text& result) {
  if (!mayHaveOne(holder)) return 1;
  const ToolAnswer answer = runTool(kCrontab, {"-u", holder.name, "-r"});
  if (answer.succeeded() || answer.output.find(kNone) != std::string::npos) return 1;
  return fail(result, "Unable to remove the crontab of ", holder.name, ": ", answer.words);
}

int removeAtJobs(const AccountHolder& holder, Text& result) {
  if (!holder.isPerson()) return 1;
  const AsRoot root;
  const Descriptor queue = openGuardedFolder(kAtJobs);
  if (!queue && errno == ENOENT) return 1;
  std::vector<std::string> names;
  int done = queue && namesIn(queue.get(), names);
  for (const std::string& name : names) {
    struct stat what {};
    if (sys::lstatAt(queue.get(), name.c_str(), what) != 0 || what.st_uid != holder.ids.user) continue;
    done &= sys::unlinkat(queue.get(), name.c_str(), 0) == 0 || errno == ENOENT;
  }
  return done ? 1 : fail(result, "Unable to remove the jobs of ", holder.name, " in ", kAtJobs);
}

}  // namespace zvtaskq
