// Record files and texts that somebody else wrote: read as their description says with every setting, and what is
// written reads back as it was.
#include <cstdlib>

#include "support.h"

namespace {
struct Settings {
  char separator = '=';
  int quoteCount = 0;
  bool keepBareLines = false;
  bool multiValued = false;
  bool insertSorted = false;
  bool useLock = false;
  const char* onlyName = nullptr;
  long long startOffset = 0;

  explicit Settings(Input& input) {
    constexpr const char* names[] = {nullptr, nullptr, nullptr, "a", "key"};
    separator = "=:=&"[input.choice(4)];
    quoteCount = static_cast<int>(input.choice(4));
    keepBareLines = input.flag();
    multiValued = input.flag();
    insertSorted = input.flag();
    useLock = input.choice(16) == 1;
    onlyName = names[input.choice(5)];
    startOffset = input.flag() ? static_cast<long long>(input.choice(256)) - 128 : 0;
  }
  void giveTo(ConfigFile& record) const {
    record.setUser(nullptr);
    record.separator = separator;
    record.quoteCount = quoteCount;
    record.quoteChar = '"';
    record.multiValued = multiValued;
    record.insertSorted = insertSorted;
    record.useLock = useLock;
    record.startOffset = startOffset;
  }
};

std::size_t separatorIn(const std::string& line, const Settings& how) {
  std::size_t from = 0;
  if (how.quoteCount > 0 && line[0] == '"') {
    for (int quotes = 1; quotes < how.quoteCount; ++quotes) {
      from = line.find('"', from + 1);
      if (from == std::string::npos) return from;
    }
  }
  return line.find(how.separator, from);
}

PlainRecord plainlyRead(std::string_view text, const Settings& how, const char* onlyName) {
  PlainRecord record;
  record.multiValued = how.multiValued;
  for (const std::string& line : linesOf(text)) {
    if (line.empty() || line[0] == '#' || line[0] == ' ') continue;
    const std::size_t at = separatorIn(line, how);
    if (at == std::string::npos && !how.keepBareLines) continue;
    const std::string name = line.substr(0, at);
    if (onlyName != nullptr && name != onlyName) continue;
    record.set(name, at == std::string::npos ? "" : line.substr(at + 1));
    if (onlyName != nullptr && !how.multiValued) break;
  }
  return record;
}

std::string_view fromOffset(std::string_view text, long long offset) {
  const auto size = static_cast<long long>(text.size());
  if (offset == 0 || size <= std::abs(offset)) return text;
  return behindBoundary(text.substr(static_cast<std::size_t>(offset > 0 ? offset : size + offset)));
}

bool holdsLineBreak(const PlainRecord& plain) {
  for (const auto& [name, value] : plain.sorted()) {
    if ((name + value).find('\r') != std::string::npos) return true;
  }
  return false;
}

void requireWritesBack(ConfigFile& record, const PlainRecord& plain, const Settings& how) {
  record.changed = true;
  const bool passes = !holdsLineBreak(plain);
  require((record.writeFile("written") == 1) == passes, "written", record.result.view());
  // A bare line that opens a quote and never ends it does not become a pair by the separator put behind it.
  if (!passes || (how.keepBareLines && how.quoteCount > 0)) return;
  ConfigFile again("written");
  how.giveTo(again);
  again.startOffset = 0;
  require(again.readFile() == 1, "read again", again.result.view());
  requireSame(again, plain, "read again");
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const Settings how(input);
  const bool writes = input.choice(8) == 1;
  const std::string text = input.rest();

  writeInput("record", text);
  ConfigFile record("record");
  how.giveTo(record);
  require(record.readFile(how.keepBareLines, how.onlyName) == 1, "read", record.result.view());
  require(!record.changed, "a read is no change");
  const PlainRecord plain = plainlyRead(fromOffset(text, how.startOffset), how, how.onlyName);
  requireSame(record, plain, "read");
  if (writes) requireWritesBack(record, plain, how);

  ConfigFile fromText(nullptr);
  how.giveTo(fromText);
  fromText.readFromString(text.c_str(), how.keepBareLines);
  requireSame(fromText, plainlyRead(text.c_str(), how, nullptr), "read from a text");
  return 0;
}
