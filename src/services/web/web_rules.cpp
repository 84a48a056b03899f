#include "services/web/web_rules.h"

#include <algorithm>
#include <cctype>

#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kInPath = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._@+-";
constexpr std::string_view kInName = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._+-";
constexpr std::string_view kBlanks = " \t\r\n";

bool isMadeOf(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool hasControls(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') || c == 0x7f;
  });
}

/// Goes through a text as nginx takes it apart.
class NginxScan {
 public:
  std::string run(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      if (isComment_) {
        isComment_ = c != '\n';
      } else if (c == '\\') {
        ++i;
        isInWord_ = true;
        if (i == text.size()) return "it ends with a backslash";
      } else if (quote_ != 0) {
        if (c == quote_) quote_ = 0;
        isInWord_ = true;
      } else if (c == '$' && i + 1 < text.size() && text[i + 1] == '{') {
        ++i;
        isInWord_ = true;
      } else if (!take(c)) {
        return "it closes a section that it has not opened";
      }
    }
    if (isComment_) return "its last line is not ended";
    if (quote_ != 0) return "a quote is not closed";
    return depth_ == 0 && isStatementOver_ ? "" : "it does not end where it began";
  }

 private:
  bool take(char c) {
    if (kBlanks.find(c) != std::string_view::npos) {
      isInWord_ = false;
      return true;
    }
    if (!isInWord_ && c == '#') {
      isComment_ = true;
      return true;
    }
    if (!isInWord_ && (c == '"' || c == '\'')) quote_ = c;
    // Within a word a closing brace is the word's.
    const bool ends = c == ';' || c == '{' || (c == '}' && !isInWord_);
    if (c == '{') ++depth_;
    if (c == '}' && ends && --depth_ < 0) return false;
    isInWord_ = !ends && quote_ == 0;
    isStatementOver_ = ends;
    return true;
  }

  char quote_ = 0;
  int depth_ = 0;
  bool isComment_ = false;
  bool isInWord_ = false;
  bool isStatementOver_ = true;
};

/// The lines as Apache takes them: one that ends with a backslash goes on with the next.
std::vector<std::string> apacheLines(std::string_view text) {
  std::vector<std::string> lines;
  bool goesOn = false;
  for (std::string& line : linesOf(text)) {
    const bool willGoOn = line.ends_with('\\');
    if (willGoOn) line.pop_back();
    if (goesOn) {
      lines.back().append(line);
    } else {
      lines.push_back(std::move(line));
    }
    goesOn = willGoOn;
  }
  if (goesOn) lines.emplace_back("\\");
  return lines;
}

/// The name of a section that a line opens or closes, in small letters.
std::string sectionOf(std::string_view line) {
  line = line.substr(0, line.find_first_of(" \t>"));
  std::string name(line);
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name;
}

}  // namespace

bool isPlainPath(std::string_view path) {
  return path.starts_with('/') && isMadeOf(path, kInPath) && path.find("/../") == std::string_view::npos &&
         !path.ends_with("/..");
}

std::string whyNoNginxPiece(std::string_view text) {
  return hasControls(text) ? "it holds a control character" : NginxScan().run(text);
}

std::string whyNoApachePiece(std::string_view text) {
  if (hasControls(text)) return "it holds a control character";
  std::vector<std::string> open;
  for (const std::string& whole : apacheLines(text)) {
    const std::string_view line = trimmed(whole);
    if (line == "\\") return "it ends with a backslash";
    if (line.starts_with("</")) {
      if (open.empty() || open.back() != sectionOf(line.substr(2))) return "it closes a section that it has not opened";
      open.pop_back();
    } else if (line.starts_with('<')) {
      open.push_back(sectionOf(line.substr(1)));
      if (open.back() == "virtualhost") return "it opens another host";
    }
  }
  return open.empty() ? "" : "a section is not closed";
}

std::string endingsOf(std::string_view name, std::string_view endings) {
  if (!isMadeOf(name, kInName)) return "";
  std::string line(name);
  std::string_view rest = trimmed(endings);
  while (!rest.empty()) {
    const std::string_view word = rest.substr(0, rest.find_first_of(kBlanks));
    if (!isMadeOf(word, kInName) || word.find('/') != std::string_view::npos) return "";
    line.append(" ").append(word);
    rest = trimmed(rest.substr(word.size()));
  }
  return line.size() > name.size() ? line : "";
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace zvtaskq
