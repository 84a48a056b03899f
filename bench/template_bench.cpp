// template_bench TEMPLATE TOKENS: fills the template from the record and prints it, for bench/template.py.
#include <cstdio>

#include "core/record/config_file.h"
#include "core/template/tokenizer.h"

using namespace zvtaskq;

int main(int count, char** arguments) {
  if (count != 3) return 2;
  ConfigFile tokens(arguments[2]);
  tokens.setUser(nullptr);
  tokens.useLock = false;
  Tokenizer tokenizer;
  if (!tokens.readFile() || !tokenizer.runFromFile(arguments[1], tokens)) return 1;
  return std::fwrite(tokenizer.output(), 1, tokenizer.length(), stdout) == tokenizer.length() ? 0 : 1;
}
