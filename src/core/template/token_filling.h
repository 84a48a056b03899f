// Filling one template: the scan for tokens, and what each kind of token does.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "core/record/list_file.h"
#include "core/template/token_values.h"

namespace zvtaskq {

/// How a template is filled.
struct FillingRules {
  /// "|?NAME=default|" defines a token.
  bool allowDefinitions = true;
  /// It does so also for a token that has a value.
  bool overrideDefinitions = false;
  /// Tokens stay in the text, and all of them are listed as missing.
  bool keepTokens = false;
  /// Whom script blocks run as; null means "nobody".
  const char* user = nullptr;
  /// Seconds a script block may take.
  int scriptTimeLimit = 0;
};

/// One text on its way through the scan.
struct FillingLevel {
  char delimiter = '|';
  /// As the caller counts; shown, no limit.
  int depth = 0;
  /// The text is the template's own, not a token's value or a script's output: script blocks in it are run.
  bool ownText = true;
  /// The text is going to be run as a script, so that no value in it may hold anything that could be code.
  bool isScript = false;
  /// How many values deep in values it stands.
  int nesting = 0;
};

/// What filling one template keeps between its texts. Time and memory stay in proportion to the template: values stand
/// in values at most 32 deep, and put in 256 MB at most; the tokens beyond stay in the text, with one error-log line.
class TokenFilling {
 public:
  /// All stay the caller's. Definitions are in `tokens` when this object is gone.
  TokenFilling(const FillingRules& rules, ConfigFile& tokens, ListFile& missing)
      : rules_(rules), values_(tokens), missing_(missing) {}

  /// Appends the filled text to `out`.
  void fill(std::string_view text, const FillingLevel& level, std::string& out);
  /// Appends what a conditional block (see `chooseBranch`) stands for. 0 when it is none.
  [[nodiscard]] int fillConditional(std::string_view block, const FillingLevel& level, std::string& out);
  /// Why the text is not filled as it should be; empty when it is.
  const std::string& problem() const { return problem_; }

 private:
  friend class TokenScan;
  void noteMissing(std::string_view name);
  /// Whether the value of a token may be put in; if not, `problem` is set.
  bool mayInsert(std::string_view name, std::size_t size, bool filled, const FillingLevel& level);
  void insertValue(std::string_view name, const char* value, const FillingLevel& level, std::string& out);
  void insertRecord(const FillingLevel& level, std::string& out);
  /// Remembers the first token whose value must not stand in a script.
  void checkForCode(std::string_view name, std::string_view inserted);
  void runScript(std::string_view script, const FillingLevel& level, std::string& out);
  void refuseScript();

  const FillingRules& rules_;
  TokenValues values_;
  ListFile& missing_;
  std::unordered_set<std::string> noted_;
  std::size_t inserted_ = 0;
  std::string problem_;
  std::string codeIn_;
  bool toldRefusal_ = false;
};

}  // namespace zvtaskq
