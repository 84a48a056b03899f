// URL-encoded texts: parsed as their description says, whatever they hold; and what is built from a record is parsed
// back to the same record.
#include <algorithm>
#include <cstring>

#include "core/text/post_string.h"
#include "support.h"

namespace {
int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

char byteOf(std::string_view digits) {
  int byte = 0;
  for (const char c : digits) {
    if (digitOf(c) < 0) return ' ';
    byte = byte * 16 + digitOf(c);
  }
  return static_cast<char>(byte);
}

std::string decoded(std::string_view text, bool keepPlus) {
  std::string out;
  while (!text.empty()) {
    if (text[0] == '%' && text.size() > 1) {
      out += byteOf(text.substr(1, 2));
      text.remove_prefix(std::min<std::size_t>(3, text.size()));
      continue;
    }
    out += text[0] == '+' && !keepPlus ? ' ' : text[0];
    text.remove_prefix(1);
  }
  return out.substr(0, out.find('\0'));
}

PlainRecord parsed(std::string_view text, bool keepPlus, bool multiValued) {
  PlainRecord record;
  record.multiValued = multiValued;
  for (;;) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return record;
    const std::size_t end = text.find('&', equals);
    record.set(decoded(text.substr(0, equals), keepPlus), decoded(text.substr(equals + 1, end - equals - 1), keepPlus));
    if (end == std::string_view::npos) return record;
    text.remove_prefix(end + 1);
  }
}

void requireBuildsBack(const ConfigFile& record, const PlainRecord& plain) {
  ConfigFile again(nullptr);
  again.multiValued = record.multiValued;
  again.fillFromPost(record.createPostString(1).view());
  requireSame(again, plain, "parsed back");
}

void requireDecodes(const std::string& text, bool keepPlus) {
  std::string mine = text.c_str();
  const std::size_t length = fixPostString(mine.data(), keepPlus);
  const std::string want = decoded(text.c_str(), keepPlus);
  require(length == want.size() && want == mine.c_str(), "decoded", want);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const bool keepPlus = input.flag(), multiValued = input.flag();
  const std::string text = input.rest();
  // A NUL ends the text, however its length is told.
  const PlainRecord plain = parsed(text.c_str(), keepPlus, multiValued);
  ConfigFile record(nullptr);
  record.multiValued = multiValued;
  require(record.fillFromPost(std::string_view(text), keepPlus) == (text.empty() ? 0 : 1), "result");
  requireSame(record, plain, "parsed");
  // A record is used for line after line.
  record.empty();
  record.fillFromPost(text.c_str(), keepPlus);
  for (const auto& [name, value] : plain.sorted()) require(record.existsParam(name.c_str()) == 1, "looked up", name);
  requireSame(record, plain, "parsed again");
  requireBuildsBack(record, plain);
  requireDecodes(text, keepPlus);
  return 0;
}
