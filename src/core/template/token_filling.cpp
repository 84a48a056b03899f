#include "core/template/token_filling.h"

#include <algorithm>
#include <optional>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/sys/log.h"
#include "core/template/token_expression.h"
#include "core/template/token_script.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kNotFound = std::string_view::npos;
constexpr std::size_t kLongestName = 63;
constexpr std::size_t kEscapeFrom = 3;
constexpr int kDeepest = 32;
constexpr std::size_t kMostInserted = 256UL << 20;
/// What a value with tokens of its own costs besides its length.
constexpr std::size_t kCostOfFilling = 1024;
constexpr char kDefaultsDelimiter = '`';
/// What could begin, end or join code in a shell, or in another language that a script may be written in.
constexpr std::string_view kCodeCharacters = "\"'`$\\;&|<>(){}";

/// Where a text stands next, asked for places that only move on: it is sought once however often it is asked for.
class NextPlace {
 public:
  NextPlace(std::string_view text, std::string wanted) : text_(text), wanted_(std::move(wanted)) {}
  std::size_t from(std::size_t place) {
    if (found_ == kUnknown || (found_ != kNotFound && found_ < place)) found_ = text_.find(wanted_, place);
    return found_;
  }
  std::size_t length() const { return wanted_.size(); }

 private:
  static constexpr std::size_t kUnknown = kNotFound - 1;
  std::string_view text_;
  std::string wanted_;
  std::size_t found_ = kUnknown;
};

bool showsTexts() {
  return sys_conf != nullptr && sys_conf->tokenizer_debug;
}

bool mayBeCode(char c) {
  return (c >= 0 && c < ' ' && c != '\t') || c == '\x7f' || kCodeCharacters.find(c) != kNotFound;
}

}  // namespace

/// One pass over one text.
class TokenScan {
 public:
  TokenScan(TokenFilling& filling, std::string_view text, const FillingLevel& level, std::string& out)
      : filling_(filling),
        text_(text),
        level_(level),
        out_(out),
        scriptEnd_(text, std::string("\nDONE") + level.delimiter),
        blockEnd_(text, std::string(1, level.delimiter) + "*endif" + level.delimiter) {}

  void run() {
    for (std::size_t at = 0; at != kNotFound;) {
      const std::size_t open = text_.find(level_.delimiter, at);
      if (open == kNotFound) break;
      at = take(open);
    }
    out_.append(text_.substr(copied_));
  }

 private:
  /// Carries the token out that a delimiter opens. Returns where the scan goes on.
  std::size_t take(std::size_t open) {
    if (open + 1 < text_.size() && text_[open + 1] == level_.delimiter) return open + 1;
    const bool slashed = open >= 1 && text_[open - 1] == '\\';
    const bool slashedTwice = slashed && open >= 2 && text_[open - 2] == '\\';
    if (slashed && !slashedTwice && open >= kEscapeFrom) return open + 1;
    const std::size_t close = text_.find(level_.delimiter, open + 1);
    if (close == kNotFound) return kNotFound;
    open_ = open;
    slashes_ = slashedTwice ? 1 : 0;
    const std::string_view token = text_.substr(open + 1, close - open - 1);
    const std::size_t end = takeToken(token, close);
    return end == kNotFound ? close : end;
  }

  /// Returns the place behind the token, or kNotFound when it is none.
  std::size_t takeToken(std::string_view token, std::size_t close) {
    if (token.starts_with('$')) return takeScript();
    if (token.find('\n') != kNotFound) return kNotFound;
    if (token.starts_with('*')) return takeConditional();
    if (token.starts_with('?') && filling_.rules_.allowDefinitions) return takeDefinition(token, close + 1);
    return takeName(token, close + 1);
  }

  /// Puts out the text before the token, which ends at `end`.
  void putBefore(std::size_t end) {
    out_.append(text_.substr(copied_, open_ - slashes_ - copied_));
    copied_ = end;
  }

  std::size_t takeScript() {
    const std::size_t last = scriptEnd_.from(open_ + 2);
    if (last == kNotFound) return kNotFound;
    if (!level_.ownText) {
      filling_.refuseScript();
      return kNotFound;
    }
    const std::size_t end = last + scriptEnd_.length();
    putBefore(end);
    filling_.runScript(text_.substr(open_ + 2, last - open_ - 2), level_, out_);
    return end;
  }

  std::size_t takeConditional() {
    const std::size_t last = blockEnd_.from(open_ + 1);
    if (last == kNotFound) return kNotFound;
    const std::size_t end = last + blockEnd_.length();
    putBefore(end);
    static_cast<void>(filling_.fillConditional(text_.substr(open_, end - open_), level_, out_));
    return end;
  }

  std::size_t takeDefinition(std::string_view token, std::size_t end) {
    const std::size_t equals = token.find('=');
    if (equals == kNotFound) return kNotFound;
    putBefore(end);
    const std::string_view name = token.substr(1, equals - 1);
    if (!filling_.rules_.overrideDefinitions && filling_.values_.find(name) != nullptr) return end;
    FillingLevel level = level_;
    level.delimiter = kDefaultsDelimiter;
    ++level.depth;
    level.ownText = level.isScript = false;
    std::string value;
    filling_.fill(token.substr(equals + 1), level, value);
    filling_.values_.define(name, std::move(value));
    return end;
  }

  std::size_t takeName(std::string_view name, std::size_t end) {
    if (name.size() > kLongestName) return kNotFound;
    if (name == "DUMPTOKENS") {
      putBefore(end);
      filling_.insertRecord(level_, out_);
      return end;
    }
    const char* value = filling_.rules_.keepTokens ? nullptr : filling_.values_.find(name);
    if (value != nullptr) {
      putBefore(end);
      filling_.insertValue(name, value, level_, out_);
      return end;
    }
    filling_.noteMissing(name);
    if (slashes_ > 0) putBefore(open_);
    return end;
  }

  TokenFilling& filling_;
  std::string_view text_;
  const FillingLevel& level_;
  std::string& out_;
  NextPlace scriptEnd_;
  NextPlace blockEnd_;
  /// How much of the text has been put out or replaced.
  std::size_t copied_ = 0;
  /// Where the token at hand opens, and how many backslashes before it go.
  std::size_t open_ = 0;
  std::size_t slashes_ = 0;
};

void TokenFilling::fill(std::string_view text, const FillingLevel& level, std::string& out) {
  if (showsTexts()) {
    debug(500, "Running tokenizer. User=%s, depth=%d", rules_.user == nullptr ? "nobody" : rules_.user, level.depth);
    debug(1000, "token text---\n%s\n---end text", std::string(text).c_str());
    if (isDebug() >= 3500) {
      debug(1700, "Tokens to be parsed:");
      ConfigFile shown(&values_.record());
      hidePasswords(shown);
      shown.printContents(0);
    }
  }
  TokenScan(*this, text, level, out).run();
}

int TokenFilling::fillConditional(std::string_view block, const FillingLevel& level, std::string& out) {
  const std::optional<std::string_view> branch = chooseBranch(block, level.delimiter, values_);
  if (!branch) return 0;
  FillingLevel deeper = level;
  ++deeper.depth;
  fill(*branch, deeper, out);
  return 1;
}

void TokenFilling::noteMissing(std::string_view name) {
  if (noted_.emplace(name).second) missing_.addElement(name);
}

bool TokenFilling::mayInsert(std::string_view name, std::size_t size, bool filled, const FillingLevel& level) {
  inserted_ += size + (filled ? kCostOfFilling : 0);
  if (inserted_ <= kMostInserted && (!filled || level.nesting < kDeepest)) return true;
  if (problem_.empty()) {
    const char* why =
        inserted_ > kMostInserted ? "The values of a template are too long" : "Tokens stand in each other too deep";
    problem_ = joined(why, ": left ", name, " and others as they are");
    errorLog("Tokenizer: %s", problem_.c_str());
  }
  return false;
}

void TokenFilling::insertValue(std::string_view name, const char* value, const FillingLevel& level, std::string& out) {
  const std::string_view text(value);
  const bool filled = showsTexts() || text.find(level.delimiter) != kNotFound;
  const std::size_t start = out.size();
  if (!mayInsert(name, text.size(), filled, level)) {
    (out += level.delimiter).append(name) += level.delimiter;
  } else if (filled) {
    FillingLevel deeper = level;
    deeper.ownText = deeper.isScript = false;
    ++deeper.nesting;
    // A definition inside it may change the very value.
    const std::string copy(text);
    fill(copy, deeper, out);
  } else {
    out.append(text);
  }
  if (level.isScript) checkForCode(name, std::string_view(out).substr(start));
}

void TokenFilling::insertRecord(const FillingLevel& level, std::string& out) {
  if (level.isScript) codeIn_ = "DUMPTOKENS";
  const ConfigFile& record = values_.record();
  for (long long i = 0; i < record.size(); ++i) {
    const char* name = record.getNameAt(i);
    const char* value = record.getValueAt(i);
    const std::string pair = joined(name, "=", value, "\n");
    if (!mayInsert("DUMPTOKENS", pair.size(), false, level)) return;
    out += pair;
  }
}

void TokenFilling::checkForCode(std::string_view name, std::string_view inserted) {
  if (codeIn_.empty() && std::any_of(inserted.begin(), inserted.end(), mayBeCode)) codeIn_ = name;
}

void TokenFilling::runScript(std::string_view script, const FillingLevel& level, std::string& out) {
  FillingLevel inside = level;
  ++inside.depth;
  inside.isScript = true;
  std::string text;
  codeIn_.clear();
  while (script.starts_with('\n')) script.remove_prefix(1);
  fill(script, inside, text);
  if (!codeIn_.empty()) {
    problem_ = joined("A script was not run, because the value of ", codeIn_, " could be read as a part of it");
    errorLog("Tokenizer: %s", problem_.c_str());
    return;
  }
  if (text.empty()) return;
  text += '\n';
  ScriptPlan plan;
  plan.text = text;
  plan.user = rules_.user;
  plan.variables = &values_.record();
  plan.timeLimit = rules_.scriptTimeLimit;
  const ScriptOutcome outcome = runScriptText(plan);
  if (!outcome.ran || outcome.timedOut) {
    if (problem_.empty()) problem_ = "A script could not be run, or did not end in time";
    return;
  }
  if (sys_conf == nullptr || !sys_conf->tokenize_script_output) {
    out += outcome.output;
    return;
  }
  FillingLevel printed = level;
  printed.ownText = printed.isScript = false;
  ++printed.nesting;
  fill(outcome.output, printed, out);
}

void TokenFilling::refuseScript() {
  if (!toldRefusal_) securityLog("Tokenizer: a script in the value of a token is not run");
  toldRefusal_ = true;
}

}  // namespace zvtaskq
