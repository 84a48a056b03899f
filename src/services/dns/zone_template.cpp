#include "services/dns/zone_template.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/template/tokenizer.h"

namespace zvtaskq {

namespace {

constexpr const char* kFile = "dns_zone.txt";
constexpr std::size_t kLongestTemplate = 1UL << 20;

std::string tokenOf(const ZoneTokenRow& row) {
  return joined("|", row.name, "|");
}

std::string replaced(const std::string& line, const std::string& token, const std::string& value) {
  std::string text;
  std::size_t from = 0;
  for (std::size_t at = line.find(token); at != std::string::npos; at = line.find(token, from)) {
    text.append(line, from, at - from).append(value);
    from = at + token.size();
  }
  return text.append(line, from);
}

/// Adds the line once for each value of the lists it names, from the one in that row on.
void addLines(const std::string& line, std::size_t row, const ZoneValues& values, std::string& text) {
  if (line.find('|') == std::string::npos || row == std::size(kZoneTokens)) {
    text.append(line) += '\n';
    return;
  }
  const ZoneTokenRow& token = kZoneTokens[row];
  const std::string name = tokenOf(token);
  if (!token.isList || line.find(name) == std::string::npos) return addLines(line, row + 1, values, text);
  const auto found = values.find(token.token);
  if (found == values.end()) return;
  for (const std::string& value : found->second) addLines(replaced(line, name, value), row + 1, values, text);
}

bool isList(std::string_view name) {
  for (const ZoneTokenRow& row : kZoneTokens) {
    if (row.isList && name == row.name) return true;
  }
  return false;
}

}  // namespace

int ZoneTemplate::read(Text& result) {
  path_ = templatePath(*sys_conf, kFile);
  const AsRoot root;
  const Descriptor file = openRegularFile(path_.c_str());
  if (file && sys::readAll(file.get(), text_, kLongestTemplate)) return 1;
  const std::string why = std::strerror(errno);
  return fail(result, "Unable to read ", path_, ": ", why);
}

int ZoneTemplate::fill(const ZoneValues& values, std::string& text, Text& result) const {
  ConfigFile tokens(nullptr);
  for (const auto& [token, all] : values) {
    const ZoneTokenRow& row = rowOf(token);
    if (!row.isList && !all.empty()) tokens.setParam(row.name, all.front().c_str());
  }
  Tokenizer tokenizer;
  tokenizer.reduceNewlines = true;
  if (!tokenizer.runTokenizer(text_.c_str(), tokens, 0)) return fail(result, path_, ": ", tokenizer.result);
  for (int i = 0; i < tokenizer.size(); ++i) {
    const char* name = tokenizer.getElementAt(i);
    if (!isList(name)) return fail(result, path_, ": there is no token ", name);
  }
  std::string_view rest(tokenizer.output(), tokenizer.length());
  // What only defines leaves an empty line.
  rest.remove_prefix(std::min(rest.find_first_not_of('\n'), rest.size()));
  text.clear();
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    addLines(std::string(rest.substr(0, end)), 0, values, text);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return 1;
}

}  // namespace zvtaskq
