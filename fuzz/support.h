// What the fuzz targets share: a check that ends the run, choices taken off the front of the input, and readings of
// lines, records and post strings so plain that one sees they are right.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/record/config_file.h"
#include "core/text/text.h"

namespace zvtaskq::fuzz {

inline void require(bool holds, const char* what, std::string_view detail = {}) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s %s\n", what, printable(detail).c_str());
  std::abort();
}

/// The bytes of an input: its first ones choose how the rest is used.
class Input {
 public:
  Input(const unsigned char* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  /// 0 to `limit`-1.
  unsigned choice(unsigned limit) {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return byte % limit;
  }
  bool flag() { return choice(2) == 1; }
  bool isUsedUp() const { return rest_.empty(); }
  std::string rest() const { return std::string(rest_); }

 private:
  std::string_view rest_;
};

/// The order of names and lines: signed bytes, a beginning before what it begins, the empty text last.
inline bool comesBefore(std::string_view a, std::string_view b) {
  if (a.empty() || b.empty()) return !a.empty() && b.empty();
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<signed char>(x) < static_cast<signed char>(y);
  });
}

/// The whole lines of a text; what stands behind its last line feed is left in `rest`.
inline std::vector<std::string> linesOf(std::string_view text, std::size_t* rest = nullptr) {
  std::vector<std::string> lines;
  std::string line;
  std::size_t unfinished = 0;
  for (const char c : text) {
    line += c;
    ++unfinished;
    if (c != '\n') continue;
    line.pop_back();
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line.substr(0, line.find('\0')));
    line.clear();
    unfinished = 0;
  }
  if (rest != nullptr) *rest = unfinished;
  return lines;
}

/// What `skipToBoundary` leaves of a text.
inline std::string_view behindBoundary(std::string_view text) {
  const std::size_t at = text.find_first_of("\n\r\xff");
  return at == std::string_view::npos ? std::string_view() : text.substr(at + 1);
}

/// A record as its description says it: every pair looked for one by one, sorted when somebody looks.
class PlainRecord {
 public:
  using Pair = std::pair<std::string, std::string>;
  bool multiValued = false;

  void set(const std::string& name, const std::string& value) {
    if (name.empty()) return;
    for (Pair& pair : pairs_) {
      if (pair.first != name || (multiValued && pair.second != value)) continue;
      pair.second = value;
      return;
    }
    pairs_.emplace_back(name, value);
  }
  std::vector<Pair> sorted() const {
    std::vector<Pair> all = pairs_;
    std::sort(all.begin(), all.end(), [](const Pair& a, const Pair& b) {
      return a.first == b.first ? comesBefore(a.second, b.second) : comesBefore(a.first, b.first);
    });
    return all;
  }

 private:
  std::vector<Pair> pairs_;
};

inline void requireSame(const ConfigFile& record, const PlainRecord& plain, const char* what) {
  const auto want = plain.sorted();
  require(record.size() == static_cast<long long>(want.size()), what, "number of pairs");
  for (long long i = 0; i < record.size(); ++i) {
    const auto& [name, value] = want[static_cast<std::size_t>(i)];
    require(name == record.getNameAt(i), what, name);
    require(value == record.getValueAt(i), what, value);
  }
}

inline void writeInput(const char* path, std::string_view content) {
  std::FILE* file = std::fopen(path, "we");
  require(file != nullptr, "fopen", path);
  require(std::fwrite(content.data(), 1, content.size(), file) == content.size(), "fwrite");
  require(std::fclose(file) == 0, "fclose");
}

}  // namespace zvtaskq::fuzz

// What includes this is a fuzz target.
using namespace zvtaskq;
using namespace zvtaskq::fuzz;

/// Every target works in a folder of its own; debug and log output goes nowhere.
extern "C" [[gnu::used]] inline int LLVMFuzzerInitialize(int*, char***) {
  std::string folder = (std::filesystem::temp_directory_path() / "zvtaskq_fuzz.XXXXXX").string();
  require(::mkdtemp(folder.data()) != nullptr, "mkdtemp");
  std::filesystem::current_path(folder);
  require(std::freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null");
  return 0;
}
