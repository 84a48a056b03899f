#include "services/web/site_template.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/template/tokenizer.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestTemplate = 1UL << 20;

/// The token of a name; `kWebTokenCount` for a name that is none.
std::size_t tokenOf(std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(kWebTokens), std::end(kWebTokens), [&](const auto& row) { return name == row.name; });
  return static_cast<std::size_t>(found - std::begin(kWebTokens));
}

bool isFlag(std::string_view name) {
  return std::any_of(std::begin(kWebFlags), std::end(kWebFlags), [&](const auto& row) { return name == row.name; });
}

}  // namespace

int SiteTemplate::read(const char* file, Text& result) {
  path_ = templatePath(*sys_conf, file);
  const AsRoot root;
  const Descriptor opened = openRegularFile(path_.c_str());
  if (!opened || !sys::readAll(opened.get(), text_, kLongestTemplate)) {
    const std::string why = std::strerror(errno);
    return fail(result, "Unable to read ", path_, ": ", why);
  }
  if (!pathExists(sys_conf->global_httpd_tokens)) return 1;
  PanelRecord global(sys_conf->global_httpd_tokens.orEmpty());
  if (!global.readFile()) return fail(result, global.result);
  for (long long i = 0; i < global.size(); ++i) {
    const char* name = global.getNameAt(i);
    // What is a site's is no token of all.
    if (tokenOf(name) == kWebTokenCount && !isFlag(name)) global_.emplace_back(name, global.getValueAt(i));
  }
  return 1;
}

int SiteTemplate::takeLine(std::string_view text, Shape& shape, Text& result) const {
  Line line;
  Piece piece;
  for (std::size_t bar = text.find('|'); bar != std::string_view::npos; bar = text.find('|')) {
    const std::size_t end = text.find('|', bar + 1);
    const bool isClosed = end != std::string_view::npos;
    const std::size_t token = isClosed ? tokenOf(text.substr(bar + 1, end - bar - 1)) : kWebTokenCount;
    const bool isToken = token != kWebTokenCount;
    piece.text.append(text.substr(0, isToken ? bar : bar + 1));
    text.remove_prefix(isToken ? end + 1 : bar + 1);
    if (!isToken) continue;
    if (kWebTokens[token].isList && line.list != kWebTokenCount && line.list != token) {
      return fail(result, path_, ": two lists in a line: ", kWebTokens[token].name);
    }
    if (kWebTokens[token].isList) line.list = token;
    piece.token = token;
    line.pieces.push_back(std::move(piece));
    piece = Piece();
  }
  piece.text.append(text) += '\n';
  line.pieces.push_back(std::move(piece));
  shape.push_back(std::move(line));
  return 1;
}

int SiteTemplate::makeShape(unsigned flags, Shape& shape, Text& result) const {
  ConfigFile tokens(nullptr);
  for (const auto& [name, value] : global_) tokens.setParam(name.c_str(), value.c_str());
  for (std::size_t i = 0; i < std::size(kWebFlags); ++i) {
    if ((flags >> i & 1) != 0) tokens.setParam(kWebFlags[i].name, "yes");
  }
  Tokenizer tokenizer;
  tokenizer.reduceNewlines = true;
  if (!tokenizer.runTokenizer(text_.c_str(), tokens, 0)) return fail(result, path_, ": ", tokenizer.result);
  for (int i = 0; i < tokenizer.size(); ++i) {
    const char* name = tokenizer.getElementAt(i);
    if (tokenOf(name) == kWebTokenCount) return fail(result, path_, ": there is no token ", name);
  }
  std::string_view rest(tokenizer.output(), tokenizer.length());
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    if (!takeLine(rest.substr(0, end), shape, result)) return 0;
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return 1;
}

int SiteTemplate::fill(unsigned flags, const SiteValues& values, std::string& text, Text& result) {
  const auto [found, isNew] = shapes_.try_emplace(flags);
  if (isNew && !makeShape(flags, found->second, result)) return 0;
  for (const Line& line : found->second) {
    const bool hasList = line.list != kWebTokenCount;
    const std::size_t times = hasList ? values[kWebTokens[line.list].token].size() : 1;
    for (std::size_t time = 0; time < times; ++time) {
      for (const Piece& piece : line.pieces) {
        text.append(piece.text);
        if (piece.token == kWebTokenCount) continue;
        const std::vector<std::string>& all = values[kWebTokens[piece.token].token];
        const std::size_t which = piece.token == line.list ? time : 0;
        if (which < all.size()) text.append(all[which]);
      }
    }
  }
  return 1;
}

}  // namespace zvtaskq
