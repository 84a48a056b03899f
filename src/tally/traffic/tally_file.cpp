#include "tally/traffic/tally_file.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tables/id_set.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

bool counts(double number) {
  return number > 0 && std::isfinite(number);
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The number that a text begins with, read as "%lf" reads it. 0 when there is none.
double leadingNumber(std::string_view text) {
  double number = 0;
  if (!text.empty() && isDigit(text.front())) {
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, number);
    // Whatever might go on as a number ("0x1F", "1e") is left to the real reading.
    if (error == std::errc() && (behind == end || *behind == '=' || *behind == ' ')) return number;
  }
  number = 0;
  return std::sscanf(std::string(text).c_str(), "%lf", &number) == 1 ? number : 0;
}

/// Sums a file up. Lines with an id are settled a few lines after they were met, when what the set knows of their ids
/// has come from memory.
class Sum : public TallyVisitor {
 public:
  void meet(const TallyLine& line) override {
    record_.read(line.record);
    const std::string_view id = record_["id"];
    Waiting& place = waiting_[next_++ % kAhead];
    settle(place);
    place = {line.amount, id.empty() ? 0 : seen_.markOf(id), record_["type"] == "email"};
    if (place.mark != 0) seen_.fetch(place.mark);
  }
  double total() {
    for (std::size_t i = 0; i < kAhead; ++i) settle(waiting_[next_++ % kAhead]);
    return total_;
  }

 private:
  static constexpr std::size_t kAhead = 16;
  struct Waiting {
    double amount = 0;
    std::uint64_t mark = 0;
    bool isEmail = false;
  };
  void settle(Waiting& line) {
    const bool isNew = line.mark == 0 || seen_.addMark(line.mark);
    if (isNew || !line.isEmail) total_ += line.amount;
    line = {};
  }

  TallyRecord record_;
  IdSet seen_;
  Waiting waiting_[kAhead];
  std::size_t next_ = 0;
  double total_ = 0;
};

}  // namespace

double sumTallyLines(LineReader& reader, long long most) {
  Sum sum;
  TallyLine parts;
  for (std::string_view line; reader.consumed() < most && reader.next(line);) {
    if (readTallyLine(line, parts)) sum.meet(parts);
  }
  return sum.total();
}

void TallyRecord::read(std::string_view encoded) {
  pairs_.clear();
  if (encoded.find('%') != std::string_view::npos || encoded.find('+') != std::string_view::npos) {
    readEscaped(encoded);
  } else {
    readPlain(encoded);
  }
}

void TallyRecord::readPlain(std::string_view encoded) {
  while (!encoded.empty()) {
    const std::size_t equals = encoded.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view name = encoded.substr(0, equals);
    encoded.remove_prefix(equals + 1);
    const std::size_t end = encoded.find('&');
    pairs_.emplace_back(name, encoded.substr(0, end));
    encoded.remove_prefix(end == std::string_view::npos ? encoded.size() : end + 1);
  }
}

void TallyRecord::readEscaped(std::string_view encoded) {
  room_.resize(encoded.size() + 1);
  PostReader reader(encoded, room_.data(), 0);
  for (;;) {
    const PostPart name = reader.takeName();
    if (name.isLast) return;
    const PostPart value = reader.takeValue();
    pairs_.emplace_back(std::string_view(name.text, name.length), std::string_view(value.text, value.length));
    if (value.isLast) return;
  }
}

std::string_view TallyRecord::operator[](std::string_view name) const {
  for (auto pair = pairs_.rbegin(); pair != pairs_.rend(); ++pair) {
    if (pair->first == name) return pair->second;
  }
  return {};
}

double TallyRecord::number(std::string_view name) const {
  const double number = leadingNumber((*this)[name]);
  return counts(number) ? number : 0;
}

bool readTallyLine(std::string_view line, TallyLine& out) {
  if (line.empty()) return false;
  out.amount = leadingNumber(line);
  const std::size_t equals = line.find('=');
  out.record = equals == std::string_view::npos ? std::string_view() : line.substr(equals + 1);
  return counts(out.amount);
}

int visitTallyFile(const char* path, TallyVisitor& visitor) {
  struct stat what {};
  const Descriptor file = openRegularFile(path, what);
  if (!file && errno == ENOENT) return 1;
  if (file) {
    LineReader reader(file.get());
    reader.expect(what.st_size);
    TallyLine parts;
    for (std::string_view line; reader.next(line);) {
      if (readTallyLine(line, parts)) visitor.meet(parts);
    }
    if (!reader.failed()) return 1;
  }
  errorLog("Unable to read %s: %s", path, std::strerror(errno));
  return 0;
}

double getTallyTotal(const char* path) {
  if (path == nullptr) return 0;
  const AsRoot root;
  Sum sum;
  // What could be read of a file counts.
  static_cast<void>(visitTallyFile(path, sum));
  return sum.total();
}

}  // namespace zvtaskq
