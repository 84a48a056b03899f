// Text templates, filled from a record of token values.
//
// A token is a name between two delimiters, "|NAME|". Besides names a template may hold
// - definitions of defaults, "|?NAME=value|", in whose value tokens stand between backquotes: "|?GREETING=Hello
// `NAME`|",
// - conditional blocks, "|*if NAME="x"|then|*else|else|*endif|" (core/template/token_expression.h says what may be
// asked), which
//   do not stand in each other,
// - script blocks: "|$", a script, and a line "DONE|". What the script prints on standard output replaces the block. It
//   runs as the Unix user chosen for it, with the tokens as environment, under a time limit. It runs only where it
//   stands in the template itself: never from a token's value, and not when a value put into its text holds a
//   character that could be code, for which the environment is there,
// - "|DUMPTOKENS|", every pair of the record as a line "name=value".
// Values may hold tokens in turn. A name or a definition is one line; a delimiter that opens nothing of all this is
// text, and so is one behind a backslash (from the fourth character of a text on). Behind two backslashes a token
// follows, and one of them stays.
#pragma once

#include <string>
#include <string_view>

#include "core/record/list_file.h"
#include "core/template/token_filling.h"
#include "core/template/token_script.h"

namespace zvtaskq {

class Config;

/// The list is that of the names that were used and have no value: they stay in the text as they stand.
class Tokenizer : public ListFile {
 public:
  /// Without a template: for `runFromFile` and `runTokenizer`.
  Tokenizer();
  /// With a template to be filled by `run`. Null is an empty one.
  explicit Tokenizer(const char* text);
  /// With the template that is read from the open file (which stays the caller's) from where it stands, and the file
  /// that `save_to_file` writes. When it cannot be read, `run` fails and `result` says why.
  Tokenizer(int openFile, const char* target);

  /// What opens and closes a token.
  char delimiter = '|';
  bool allowDefinitions = true;
  /// Definitions count even for tokens that have a value.
  bool overrideDefinitions = false;
  /// Tokens stay in the text whether they have a value or not, and all are listed.
  bool keepTokens = false;
  /// Runs of empty lines (of spaces and tabs too) are dropped from what was filled.
  bool reduceNewlines = false;
  /// Whom script blocks run as; null means "nobody".
  Text user;
  /// Seconds a script block may take.
  int scriptTimeLimit = kScriptTimeLimit;

  /// Fills the template this object was made with.
  [[nodiscard]] int run(ConfigFile& tokens, int depth = 0);
  /// Fills the text of a file, which is opened under the identity of the moment and is a regular file of 64 MB at most.
  /// 0 also with the result "Unable to open <path> for reading." and why.
  [[nodiscard]] int runFromFile(const char* path, ConfigFile& tokens, int depth = 0);
  /// Fills `text`; null is empty. `tokens` keeps what the text defines. 1, or 0 with the reason in `result` when a
  /// token or a script had to be left out; the output then is what could be produced. `depth` is only shown.
  [[nodiscard]] int runTokenizer(const char* text, ConfigFile& tokens, int depth);
  /// The same without forgetting the names listed as missing before.
  [[nodiscard]] int runit(std::string_view text, ConfigFile& tokens, int depth);
  /// What was filled last; valid until the next run.
  const char* output() const { return output_.c_str(); }
  std::size_t length() const { return output_.size(); }

  /// The text that a conditional block stands for, filled. Null, with an error-log line, when it is no such block.
  Text doIfThenElse(const char* block, ConfigFile& tokens, int depth);
  /// As `evaluateExpression`; nulls count as empty.
  static bool eval_expression(const char* left, const char* operation, const char* right, ConfigFile& tokens);
  /// What the script prints when it is run as `asUser` (null: nobody) with the tokens as environment (null: none);
  /// null when it could not be run or did not end within `timeLimit` seconds.
  static Text runScript(const char* script, const char* asUser, const ConfigFile* tokens,
                        int timeLimit = kScriptTimeLimit);
  /// Sets the token FOOTER, unless the record has it, to what messages end with: the text of "message_footer.txt" in
  /// the folder "custom" below `templates`, else of the one in `templates` itself, else a line that names the sender
  /// (`msg_sys`) and the server. May be called under any identity, which is the same afterwards.
  static void add_footer_token(ConfigFile& tokens, const Config* conf);

  /// Puts what was filled in the place of `path` (null: the target given when this object was made) in one step, with
  /// the permission bits `mode`. It is written under the identity of the moment, which stays, and given to the account
  /// `owner` and the group of that name, as far as they are not null; that needs a process started by root. 0 with the
  /// reason in `result`: the old file is whole then.
  [[nodiscard]] int save_to_file(const char* owner, const char* group, unsigned mode, const char* path = nullptr);

 private:
  [[nodiscard]] int readTemplate(int openFile, const char* name);
  void forget();
  int reduce();

  std::string template_;
  bool templateRead_ = true;
  std::string output_;
  Text target_;
};

}  // namespace zvtaskq
