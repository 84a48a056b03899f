#include "runner/syscheck/setting_names.h"

#include <algorithm>
#include <cctype>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestName = 64;
constexpr std::size_t kFarthest = 3;

bool same(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

/// One row of the table of distances after another: what was, what was before that, what is being made.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    before.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same(a[i - 1], b[j - 1]) ? 0U : 1U)});
      const bool isExchange = i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1]);
      if (isExchange) row[j] = std::min(row[j], before[j - 2] + 1);
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearestName(std::string_view name, const std::vector<std::string_view>& known) {
  if (name.size() > kLongestName) return "";
  std::size_t least = std::min(kFarthest, name.size() / 3) + 1;
  std::string_view nearest;
  for (const std::string_view candidate : known) {
    const std::size_t longer = std::max(candidate.size(), name.size());
    if (longer - std::min(candidate.size(), name.size()) >= least) continue;
    const std::size_t found = distance(name, candidate);
    if (found >= least) continue;
    least = found;
    nearest = candidate;
  }
  return std::string(nearest);
}

void checkSettingNames(Issues& issues) {
  PanelRecord written(joined(sys_conf->getFilename()));
  written.useLock = false;
  if (!written.readFile()) return;
  ConfigFile effective(nullptr);
  sys_conf->checkFile(&effective);
  std::vector<std::string_view> known;
  for (long long i = 0; i < effective.size(); ++i) known.emplace_back(effective.getNameAt(i));
  for (long long i = 0; i < written.size(); ++i) {
    const char* name = written.getNameAt(i);
    if (effective.existsParam(name)) continue;
    const std::string nearest = issues.isFull(Concern::settings) ? "" : nearestName(name, known);
    issues.add(Concern::settings, joined(name, " in ", written.getFilename(), " is a setting that nothing reads"),
               nearest.empty() ? "take it out" : joined("take it out, or write ", nearest, " if that was meant"));
  }
}

}  // namespace zvtaskq
