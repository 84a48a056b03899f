// Lines of any length, however the bytes arrive: what each reader hands out is what a cut at every line feed gives.
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "core/read/line_reader.h"
#include "core/sys/sys.h"
#include "support.h"

namespace {
constexpr std::size_t kMostPieces = 64;

/// A descriptor each read of which gives one piece of the text: 1 to `longest` bytes.
Descriptor inPieces(std::string_view text, std::size_t longest) {
  int ends[2];
  require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
  Descriptor writer(ends[1]);
  std::size_t piece = 1;
  for (std::size_t sent = 0; !text.empty(); ++sent) {
    const std::size_t length = sent < kMostPieces ? std::min(piece, text.size()) : text.size();
    require(::write(writer.get(), text.data(), length) == static_cast<ssize_t>(length), "write");
    text.remove_prefix(length);
    piece = piece % longest + 1;
  }
  return Descriptor(ends[0]);
}

Descriptor inMemory(std::string_view text) {
  Descriptor file(::memfd_create("lines", MFD_CLOEXEC));
  require(sys::writeAll(file.get(), text) == text.size() && ::lseek(file.get(), 0, SEEK_SET) == 0, "memory file");
  return file;
}

void requireReads(int fd, std::string_view text, bool skipFirst) {
  LineReader reader(fd);
  if (skipFirst) {
    reader.skipToBoundary();
    require(reader.consumed() == static_cast<long long>(text.size() - behindBoundary(text).size()), "skipped");
    text = behindBoundary(text);
  }
  const long long before = reader.consumed();
  std::size_t rest = 0;
  std::string_view line;
  for (const std::string& want : linesOf(text, &rest)) require(reader.next(line) && line == want, "line", want);
  require(!reader.next(line) && !reader.failed(), "end");
  require(reader.unfinished() == static_cast<long long>(rest), "unfinished");
  require(reader.consumed() - before == static_cast<long long>(text.size() - rest), "consumed");
}

void requireReadsText(const std::string& text) {
  std::string_view rest = text, line;
  for (const std::string& want : linesOf(text)) require(nextLine(rest, line) && line == want, "nextLine", want);
  require(!nextLine(rest, line), "nextLine at the end");

  const std::string upToNul = text.c_str();
  const char* at = upToNul.c_str();
  char* buffer = nullptr;
  std::size_t size = 0;
  for (const std::string& want : linesOf(upToNul)) {
    require(readLine(at, buffer, size) == 1 && want == buffer, "line of a text", want);
  }
  require(readLine(at, buffer, size) == 0, "text at the end");
  static_cast<void>(Text::adopt(buffer));
}

/// With a longest line, a line comes whole or in parts, each longer than that and together the line.
void requireReadsStream(std::string_view text, int maxLength) {
  std::FILE* file = ::fdopen(inMemory(text).release(), "r");
  require(file != nullptr, "fdopen");
  char* buffer = nullptr;
  std::size_t size = 0, from = 0;
  while (readLine(file, buffer, size, maxLength) == 1) {
    const auto to = static_cast<std::size_t>(std::ftell(file));
    const std::string part(text.substr(from, to - from));
    from = to;
    if (part.ends_with('\n')) {
      require(linesOf(part) == std::vector<std::string>{buffer}, "line of a stream", part);
    } else {
      require(maxLength > 0 && part.size() > static_cast<std::size_t>(maxLength), "part of a line", part);
      require(part.substr(0, part.find('\0')) == buffer, "text of a part", part);
    }
  }
  require(text.find('\n', from) == std::string_view::npos, "stream at the end");
  std::fclose(file);
  static_cast<void>(Text::adopt(buffer));
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const std::size_t longest = 1 + input.choice(64);
  const bool skipFirst = input.flag(), isLong = input.choice(64) == 1;
  const int maxLength = static_cast<int>(input.choice(3)) * 700;
  std::string text = input.rest();
  requireReads(inPieces(text, longest).get(), text, skipFirst);
  requireReadsText(text);
  requireReadsStream(text, maxLength);
  if (!isLong) return 0;
  // Longer than the buffer that a reader starts with.
  std::string many;
  while (many.size() < 300'000 && !text.empty()) many += text;
  requireReads(inMemory(many).get(), many, skipFirst);
  return 0;
}
