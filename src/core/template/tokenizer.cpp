#include "core/template/tokenizer.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/template/token_expression.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestTemplate = 64UL << 20;
constexpr const char* kFooter = "FOOTER";
constexpr const char* kFooterFiles[] = {"/custom/message_footer.txt", "/message_footer.txt"};

bool isBlankLine(std::string_view line) {
  return line.find_first_not_of(" \t") == std::string_view::npos;
}

/// Gives the file to the account and the group, as far as they are named. 0 with errno.
int giveTo(int file, const char* owner, const char* group) {
  if (owner == nullptr && group == nullptr) return 1;
  const unsigned user = owner == nullptr ? static_cast<unsigned>(-1) : getUID(owner);
  const unsigned members = group == nullptr ? static_cast<unsigned>(-1) : getGID(group, 1);
  if (user == kUnknownId || members == kUnknownId) {
    errno = EINVAL;
    return 0;
  }
  const AsRoot root;
  return sys::fchown(file, user, members) == 0 ? 1 : 0;
}

}  // namespace

Tokenizer::Tokenizer() : ListFile(nullptr) {}

Tokenizer::Tokenizer(const char* text) : ListFile(nullptr), template_(text == nullptr ? "" : text) {}

Tokenizer::Tokenizer(int openFile, const char* target) : ListFile(nullptr), target_(Text::copyOf(target)) {
  templateRead_ = readTemplate(openFile, "the open file") != 0;
}

int Tokenizer::readTemplate(int openFile, const char* name) {
  if (sys::readAll(openFile, template_, kLongestTemplate)) return 1;
  const std::string why = std::strerror(errno);
  addResult(result, "Unable to read ", name, ".");
  return fail(result, why);
}

void Tokenizer::forget() {
  empty();
  result = "";
  output_.clear();
}

int Tokenizer::run(ConfigFile& tokens, int depth) {
  if (!templateRead_) return 0;
  forget();
  return runit(template_, tokens, depth);
}

int Tokenizer::runFromFile(const char* path, ConfigFile& tokens, int depth) {
  forget();
  const Descriptor file = openRegularFile(path);
  if (!file) {
    const std::string why = std::strerror(errno);
    addResult(result, "Unable to open ", path, " for reading.");
    return fail(result, why);
  }
  return readTemplate(file.get(), path) ? runit(template_, tokens, depth) : 0;
}

int Tokenizer::runTokenizer(const char* text, ConfigFile& tokens, int depth) {
  forget();
  return runit(text == nullptr ? std::string_view() : std::string_view(text), tokens, depth);
}

int Tokenizer::runit(std::string_view text, ConfigFile& tokens, int depth) {
  const FillingRules rules{allowDefinitions, overrideDefinitions, keepTokens, user, scriptTimeLimit};
  FillingLevel level;
  level.delimiter = delimiter;
  level.depth = depth;
  TokenFilling filling(rules, tokens, *this);
  output_.clear();
  output_.reserve(text.size());
  filling.fill(text, level, output_);
  if (reduceNewlines) {
    debug(3000, "Tokenizer: reducing newlines - start");
    debug(3000, "Tokenizer: reducing newlines - done: reduced=%d", reduce());
  }
  return filling.problem().empty() ? 1 : fail(result, filling.problem());
}

/// Drops the lines that are empty, but for one at the very start. Returns how many.
int Tokenizer::reduce() {
  std::string kept;
  kept.reserve(output_.size());
  int dropped = 0;
  std::string_view rest = output_;
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    if (!kept.empty() && isBlankLine(line)) {
      ++dropped;
    } else {
      kept.append(line) += '\n';
    }
  }
  output_ = kept.append(rest);
  return dropped;
}

Text Tokenizer::doIfThenElse(const char* block, ConfigFile& tokens, int depth) {
  const FillingRules rules{allowDefinitions, overrideDefinitions, keepTokens, user, scriptTimeLimit};
  FillingLevel level;
  level.delimiter = delimiter;
  level.depth = depth;
  TokenFilling filling(rules, tokens, *this);
  std::string text;
  if (block == nullptr || !filling.fillConditional(block, level, text)) return {};
  return Text::copyOf(std::string_view(text));
}

bool Tokenizer::eval_expression(const char* left, const char* operation, const char* right, ConfigFile& tokens) {
  const auto view = [](const char* text) { return text == nullptr ? std::string_view() : std::string_view(text); };
  return evaluateExpression(view(left), view(operation), view(right), TokenValues(tokens));
}

Text Tokenizer::runScript(const char* script, const char* asUser, const ConfigFile* tokens, int timeLimit) {
  ScriptPlan plan;
  if (script != nullptr) plan.text = script;
  plan.user = asUser;
  plan.variables = tokens;
  plan.timeLimit = timeLimit;
  const ScriptOutcome outcome = runScriptText(plan);
  if (!outcome.ran || outcome.timedOut) return {};
  return Text::copyOf(std::string_view(outcome.output));
}

void Tokenizer::add_footer_token(ConfigFile& tokens, const Config* conf) {
  if (tokens.existsParam(kFooter) || conf == nullptr) return;
  const AsUser panel(kPanelUser);
  for (const char* name : kFooterFiles) {
    std::string text;
    const Descriptor file = openRegularFile(joined(conf->templates, name).c_str());
    if (file && sys::readAll(file.get(), text, kLongestTemplate)) {
      tokens.setParam(kFooter, text.c_str());
      return;
    }
  }
  tokens.setParam(kFooter, joined("-- \n", conf->msg_sys, ", ", conf->servername, "\n").c_str());
}

int Tokenizer::save_to_file(const char* owner, const char* group, unsigned mode, const char* path) {
  const char* target = path == nullptr ? target_.get() : path;
  if (target == nullptr) return fail(result, "Filename is null");
  SafeFile file(target);
  const char* step = "Unable to open file for writing: ";
  if (file.open()) {
    step = "Unable to set the owner of ";
    file.write(output_);
    if (giveTo(file.descriptor(), owner, group) && sys::fchmod(file.descriptor(), mode & 0777) == 0) {
      step = "Error writing ";
      if (file.finish() && file.putInPlace()) return 1;
    }
    const int error = errno;
    static_cast<void>(sys::unlink(file.temporaryPath()));
    errno = error;
  }
  const std::string why = std::strerror(errno);
  addResult(result, step, target);
  return fail(result, why);
}

}  // namespace zvtaskq
