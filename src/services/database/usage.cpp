#include "services/database/usage.h"

#include <algorithm>
#include <numeric>

#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/text/post_string.h"
#include "services/database/helper.h"

namespace zvtaskq {

namespace {

constexpr DatabaseTime kSizesTime{240, 300};
constexpr const char* kSizesFile = "database_sizes";

/// Names may hold what separates pairs and lines.
std::string decoded(const char* name) {
  std::string text = name;
  text.resize(fixPostString(text.data(), 0));
  return text;
}

void addDatabase(std::vector<DatabaseUsage>& all, std::string name, const ConfigFile& record, const char* key) {
  long long bytes = 0;
  if (record.getValue(key, &bytes) && bytes >= 0) all.push_back({std::move(name), bytes});
}

void keepSizes(const std::vector<DatabaseUsage>& all) {
  PanelRecord kept(stateFile(kSizesFile));
  openStateFolder();
  for (const DatabaseUsage& database : all) kept.setParam(escapedSparingly(database.name).c_str(), database.bytes);
  if (!kept.writeFile()) errorLog("Unable to keep the sizes of the databases: %s", kept.result.orEmpty());
}

void readKeptSizes(std::vector<DatabaseUsage>& all) {
  PanelRecord kept(stateFile(kSizesFile));
  if (!kept.readFile()) return;
  for (long long i = 0; i < kept.size(); ++i) {
    addDatabase(all, decoded(kept.getNameAt(i)), kept, kept.getNameAt(i));
  }
}

bool isBefore(const DatabaseUsage& a, const DatabaseUsage& b) {
  return a.name < b.name;
}

}  // namespace

int readDatabases(std::vector<DatabaseUsage>& out) {
  out.clear();
  if (!hasDatabases()) return 1;
  std::vector<DatabaseCall> calls;
  calls.push_back(DatabaseCall{{"command", "sizes"}});
  calls.front().take = [&](const ConfigFile& row) { addDatabase(out, joined(row.getValue("database")), row, "bytes"); };
  Text result;
  const int isAnswered = askDatabaseServer(calls, kSizesTime, result) && calls.front().isDone;
  if (isAnswered) {
    keepSizes(out);
  } else {
    if (result.isNull()) result = calls.front().error.c_str();
    errorLog("Unable to read the sizes of the databases, those of the last time count: %s", result.orEmpty());
    out.clear();
    readKeptSizes(out);
  }
  std::sort(out.begin(), out.end(), isBefore);
  return isAnswered;
}

Databases::Databases(std::vector<DatabaseUsage> all, const DatabaseOwners& owners) {
  for (DatabaseUsage& database : all) {
    const std::string_view owner = owners.ofDatabase(database.name);
    if (!owner.empty()) byOwner_[std::string(owner)].push_back(std::move(database));
  }
}

std::span<const DatabaseUsage> Databases::of(std::string_view account) const {
  const auto own = byOwner_.find(account);
  return own == byOwner_.end() ? std::span<const DatabaseUsage>() : own->second;
}

long long Databases::bytesOf(std::span<const DatabaseUsage> databases) {
  return std::accumulate(databases.begin(), databases.end(), 0LL,
                         [](long long sum, const DatabaseUsage& database) { return sum + database.bytes; });
}

}  // namespace zvtaskq
