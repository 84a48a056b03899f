#include "account/filters/filter_text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "account/filters/filter_tokens.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/safe_file.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "core/sys/privileges.h"
#include "core/template/tokenizer.h"

namespace zvtaskq {

namespace {

constexpr const char* kTemplate = "mail_filter.txt";
constexpr std::size_t kLongestTemplate = 1UL << 20;
constexpr const char* kSample = "state/mail_filter.sample";
constexpr const char* kExim[] = {"/usr/sbin/exim4", "/usr/sbin/exim"};
constexpr const char* kSampleMail = "Subject: sample\n\ntext\n";
constexpr mode_t kSampleMode = 0600;

constexpr long long kMostMegabytes = 100'000;
/// As many stars as a scanner writes.
constexpr long long kHighestScore = 50;
constexpr std::size_t kMostWords = 200;
constexpr std::size_t kLongestWord = 100;

int refuse(const char* key, std::string_view value, const char* why, Text& result) {
  return fail(result, key, " '", value.substr(0, kLongestWord), "' is refused: ", why);
}

int readNumber(const ConfigFile& record, const char* key, long long most, long long& number, Text& result) {
  const std::string_view text = record.getOrEmpty(key);
  if (text.empty()) return 1;
  const char* end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc() && behind == end && number >= 0 && number <= most) return 1;
  return refuse(key, text, "it is no number that it can have", result);
}

bool isWord(std::string_view word) {
  return word.size() <= kLongestWord && std::all_of(word.begin(), word.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("@._ -", c) != nullptr;
         });
}

std::string testsOf(const std::vector<std::string>& words) {
  std::string tests;
  for (const std::string& word : words) {
    if (!tests.empty()) tests += " or ";
    tests += joined("$h_Subject: contains \"", word, "\" or $h_From: contains \"", word, "\"");
  }
  return tests;
}

std::string stars(long long score) {
  return std::string(static_cast<std::size_t>(score), '*');
}

}  // namespace

int FilterSettings::read(const ConfigFile& record, Text& result) {
  if (!readNumber(record, "max_size", kMostMegabytes, megabytes, result)) return 0;
  std::string_view left = record.getOrEmpty("words");
  while (!left.empty()) {
    const std::size_t comma = std::min(left.find(','), left.size());
    const std::string_view word = trimmed(left.substr(0, comma));
    left.remove_prefix(std::min(comma + 1, left.size()));
    if (!isWord(word)) return refuse("words", word, "only letters, digits, blanks and @._- can be looked for", result);
    if (!word.empty()) words.emplace_back(word);
    if (words.size() > kMostWords) return refuse("words", word, "there are more than 200", result);
  }
  if (!record.isValue("spam", "ON")) return 1;
  action = record.getOrEmpty("spam_action");
  if (action == "inbox") action.clear();
  if (!action.empty() && action != "folder" && action != "drop") {
    return refuse("spam_action", action, "it is none of inbox, folder and drop", result);
  }
  if (!readNumber(record, "spam_score", kHighestScore, score, result)) return 0;
  // Everything has a score of 0.
  if (score == 0) action.clear();
  return readNumber(record, "high_score", kHighestScore, highScore, result);
}

int FilterTemplate::read(Text& result) {
  path_ = templatePath(*sys_conf, kTemplate);
  {
    const AsRoot root;
    const Descriptor file = openRegularFile(path_.c_str());
    if (!file || !sys::readAll(file.get(), text_, kLongestTemplate)) {
      const std::string why = std::strerror(errno);
      return fail(result, "Unable to read ", path_, ": ", why);
    }
  }
  return judge(result);
}

int FilterTemplate::fill(const std::string& domain, const FilterSettings& settings, std::string& text,
                         Text& result) const {
  const std::string values[kFilterTokenCount] = {
      domain,
      settings.megabytes == 0 ? "" : joined(std::to_string(settings.megabytes), "M"),
      testsOf(settings.words),
      stars(settings.highScore),
      stars(settings.score),
      settings.action,
      sys_conf->spam_inbox_prefix ? ".INBOX.Junk" : ".Junk"};
  ConfigFile tokens(nullptr);
  for (std::size_t i = 0; i < kFilterTokenCount; ++i) tokens.setParam(kFilterTokens[i].name, values[i].c_str());
  Tokenizer tokenizer;
  tokenizer.reduceNewlines = true;
  if (!tokenizer.runTokenizer(text_.c_str(), tokens, 0)) return fail(result, path_, ": ", tokenizer.result);
  if (tokenizer.size() > 0) return fail(result, path_, ": there is no token ", tokenizer.getElementAt(0));
  text.assign(tokenizer.output(), tokenizer.length());
  return 1;
}

int FilterTemplate::judge(Text& result) const {
  const char* exim = firstTool(kExim);
  if (exim == nullptr) return 1;
  const std::string path = adminFile(kSample);
  for (const char* action : {"folder", "drop"}) {
    FilterSettings all;
    all.megabytes = all.score = all.highScore = 1;
    all.words = {"sample"};
    all.action = action;
    std::string text;
    if (!fill("sample.example", all, text, result) || !writeWhole(path, idsOf(kPanelUser), text, kSampleMode, result)) {
      return 0;
    }
    const ToolAnswer answer = runTool(exim, {"-bf", path}, kSampleMail);
    const AsUser panel(kPanelUser);
    sys::unlink(path.c_str());
    if (!answer.succeeded()) return fail(result, path_, ": ", answer.words);
  }
  return 1;
}

}  // namespace zvtaskq
