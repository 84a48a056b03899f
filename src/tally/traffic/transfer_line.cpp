#include "tally/traffic/transfer_line.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>

namespace zvtaskq {

namespace {

/// Cuts the text up to the next blank off the front, and the blank. Empty when the text begins with one.
std::string_view nextField(std::string_view& text) {
  const std::string_view field = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(field.size() + 1, text.size()));
  return field;
}

/// The same from the end.
std::string_view lastField(std::string_view& text) {
  const std::size_t blank = text.rfind(' ');
  if (blank == std::string_view::npos) return {};
  const std::string_view field = text.substr(blank + 1);
  text = text.substr(0, blank);
  return field;
}

bool skipFields(std::string_view& text, int count) {
  for (int i = 0; i < count; ++i) {
    // Days of one digit have two blanks before them.
    while (text.starts_with(' ')) text.remove_prefix(1);
    if (nextField(text).empty()) return false;
  }
  return !text.empty();
}

bool isComplete(Transfer& out) {
  const char* const end = out.bytesText.data() + out.bytesText.size();
  const auto [behind, error] = std::from_chars(out.bytesText.data(), end, out.bytes);
  return !out.bytesText.empty() && error == std::errc() && behind == end && !out.user.empty() && !out.from.empty();
}

/// `127.0.0.1 - bob [23/Nov/2026:00:41:59 -0000] "PUT /home/bob/file" 200 1000`; the name is escaped.
bool readClf(std::string_view line, Transfer& out) {
  out.bytesText = lastField(line);
  if (lastField(line) != "200" || !line.ends_with('"')) return false;
  out.from = nextField(line);
  if (nextField(line) != "-") return false;
  const std::size_t date = line.find(" [");
  if (date == std::string_view::npos) return false;
  out.user = line.substr(0, date);
  line.remove_prefix(date);
  const bool isTransfer =
      line.find("] \"GET ") != std::string_view::npos || line.find("] \"PUT ") != std::string_view::npos;
  return isTransfer && isComplete(out);
}

/// `2026-11-23 00:42:10 127.0.0.1 []created /home/bob/file 226 bob 1000`; the name is escaped.
bool readW3c(std::string_view line, Transfer& out) {
  if (!skipFields(line, 2)) return false;
  out.from = nextField(line);
  const std::string_view what = nextField(line);
  if (what != "[]created" && what != "[]sent") return false;
  if (nextField(line).empty() || nextField(line) != "226") return false;
  out.bytesText = lastField(line);
  out.user = line;
  return isComplete(out);
}

/// `Mon Nov 23 00:42:16 2026 0 127.0.0.1 1000 /home/bob/file b _ i r bob ftp 1 * c`; blanks of the name are "_".
bool readXferlog(std::string_view line, Transfer& out) {
  if (!skipFields(line, 6)) return false;
  out.from = nextField(line);
  out.bytesText = nextField(line);
  if (nextField(line).empty()) return false;
  if (nextField(line).size() != 1 || nextField(line) != "_") return false;
  const std::string_view direction = nextField(line);
  if ((direction != "i" && direction != "o") || nextField(line).size() != 1) return false;
  // A broken-off transfer, "i", was paid for too.
  const std::string_view end = lastField(line);
  if ((end != "c" && end != "i") || lastField(line) != "*" || lastField(line).empty() || lastField(line) != "ftp") {
    return false;
  }
  out.user = line;
  return isComplete(out);
}

constexpr TransferReader kPureftpdFormats[] = {readClf, readW3c, readXferlog};
constexpr std::string_view kW3cTitle = "#Software: Pure-FTPd";
constexpr std::string_view kCountedCommands[] = {"RETR", "STOR", "APPE", "STOU"};

}  // namespace

bool readProftpdLine(std::string_view line, Transfer& out) {
  const std::string_view command = nextField(line);
  if (std::find(std::begin(kCountedCommands), std::end(kCountedCommands), command) == std::end(kCountedCommands)) {
    return false;
  }
  out.bytesText = nextField(line);
  out.from = nextField(line);
  if (nextField(line).empty()) return false;
  out.user = line;
  return isComplete(out);
}

TransferReader pureftpdReader(std::string_view firstLine) {
  if (firstLine.starts_with(kW3cTitle)) return readW3c;
  Transfer transfer;
  for (const TransferReader read : kPureftpdFormats) {
    if (read(firstLine, transfer)) return read;
  }
  return nullptr;
}

}  // namespace zvtaskq
