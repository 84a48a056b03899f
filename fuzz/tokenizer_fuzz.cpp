// Whatever stands in a template and in its values: filling ends, stays within bounds, and keeps what it promises. Until
// its first NUL the input is the template, behind it the record, a "name=value" a line.
#include "core/template/tokenizer.h"

#include <cstring>

#include "support.h"

namespace {
/// A script block would be run; nothing that the fuzzer writes may be.
bool holdsScript(const std::string& text) {
  return text.find("|$") != std::string::npos;
}

void fill(ConfigFile& record, const std::string& pairs) {
  ConfigFile given(nullptr);
  given.readFromString(pairs.c_str());
  for (long long i = 0; i < given.size() && i < 20; ++i) record.setParam(given.getNameAt(i), given.getValueAt(i));
}

/// Names listed as missing stand in what was filled, and have no value.
void checkMissing(const Tokenizer& tokenizer, const std::string& text, const std::string& pairs) {
  for (int i = 0; i < tokenizer.size(); ++i) {
    const std::string name = tokenizer.getElementAt(i);
    require(!name.empty() && name.size() <= 63, "length of a missing name");
    require(name.find_first_of("\n") == std::string::npos, "a missing name of two lines");
    require(text.find(name) != std::string::npos || pairs.find(name) != std::string::npos,
            "a missing name from nowhere");
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string text = input.substr(0, input.find('\0'));
  const std::string pairs = text.size() < input.size() ? input.substr(text.size() + 1) : "";
  if (holdsScript(text)) return 0;

  ConfigFile record(nullptr);
  fill(record, pairs);
  Tokenizer tokenizer;
  const int filled = tokenizer.runTokenizer(text.c_str(), record, 0);
  require(filled == 1 || !tokenizer.result.isEmpty(), "a failure without a reason");
  checkMissing(tokenizer, text, pairs);
  require(text.find('|') != std::string::npos || text == tokenizer.output(), "plain text was changed");
  require(tokenizer.length() == std::strlen(tokenizer.output()), "length of the output");
  // Values that go round in circles take their time, and once is enough of them.
  if (!filled) return 0;

  // With all tokens kept no value shows, and what is kept is text of the template.
  ConfigFile nothing(nullptr);
  fill(nothing, pairs);
  tokenizer.keepTokens = true;
  tokenizer.allowDefinitions = false;
  static_cast<void>(tokenizer.runTokenizer(text.c_str(), nothing, 0));
  if (text.find("|*") == std::string::npos && text.find("DUMPTOKENS") == std::string::npos) {
    require(tokenizer.length() <= text.size(), "kept tokens grew");
  }

  tokenizer.keepTokens = false;
  tokenizer.overrideDefinitions = tokenizer.allowDefinitions = tokenizer.reduceNewlines = true;
  static_cast<void>(tokenizer.runTokenizer(text.c_str(), record, 0));
  require(std::strstr(tokenizer.output(), "\n\n") == nullptr, "an empty line was kept");
  return 0;
}
