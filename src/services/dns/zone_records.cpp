#include "services/dns/zone_records.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace zvtaskq {

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kSerialWord = 2;
constexpr char kApex = '@';
constexpr long long kLongestTtl = 0x7fffffff;

std::string lower(std::string_view text) {
  std::string all(text);
  std::transform(all.begin(), all.end(), all.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
  return all;
}

std::string upper(std::string_view text) {
  std::string all(text);
  std::transform(all.begin(), all.end(), all.begin(), [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
  return all;
}

bool isControl(char c) {
  return (c >= 0 && c < ' ') || c == '\x7f';
}

/// Seconds of "3600" or "1h30m"; -1 for anything else.
long long ttlOf(std::string_view word) {
  constexpr std::pair<char, long long> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};
  long long all = 0;
  while (!word.empty()) {
    long long amount = 0;
    const char* end = word.data() + word.size();
    const auto [behind, error] = std::from_chars(word.data(), end, amount);
    if (error != std::errc() || amount < 0 || amount > kLongestTtl) return -1;
    word.remove_prefix(static_cast<std::size_t>(behind - word.data()));
    long long unit = 1;
    if (!word.empty()) {
      const char letter = static_cast<char>(word.front() | 0x20);
      const auto* found =
          std::find_if(std::begin(kUnits), std::end(kUnits), [&](const auto& one) { return one.first == letter; });
      if (found == std::end(kUnits)) return -1;
      unit = found->second;
      word.remove_prefix(1);
    }
    all += amount * unit;
    if (all > kLongestTtl) return -1;
  }
  return all;
}

/// Types whose last word is a host name.
bool endsWithHost(std::string_view type) {
  constexpr std::string_view kTypes[] = {"CNAME", "DNAME", "MX", "NS", "PTR", "SRV"};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

class ZoneReader {
 public:
  ZoneReader(std::string_view text, std::string_view domain, std::vector<ZoneRecord>& records)
      : text_(text), domain_(lower(domain)), origin_(joined(domain_, ".")), records_(records) {}

  [[nodiscard]] int read(Text& result) {
    while (at_ < text_.size()) {
      begin_ = at_;
      const std::size_t line = line_;
      if (!readWords() || !takeWords()) {
        return fail(result, "line ", std::to_string(line), ": ", printable(problem_));
      }
    }
    return 1;
  }

 private:
  int refuse(std::string problem) {
    problem_ = std::move(problem);
    return 0;
  }

  /// The words of a record, which may go over several lines between parentheses.
  int readWords() {
    words_.clear();
    hasName_ = kBlanks.find(text_[at_]) == std::string_view::npos;
    int depth = 0;
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '\n') {
        ++at_;
        ++line_;
        if (depth == 0) return 1;
      } else if (c == ';') {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (c == '(' || c == ')') {
        depth += c == '(' ? 1 : -1;
        if (depth < 0) return refuse("a parenthesis that is not opened");
        ++at_;
      } else if (kBlanks.find(c) != std::string_view::npos) {
        ++at_;
      } else if (!readWord()) {
        return 0;
      }
    }
    return depth == 0 ? 1 : refuse("a parenthesis that is not closed");
  }

  int readWord() {
    const std::size_t begin = at_;
    const bool isQuoted = text_[at_] == '"';
    if (isQuoted) ++at_;
    for (; at_ < text_.size(); ++at_) {
      char c = text_[at_];
      if (isQuoted ? c == '"' : std::strchr(" \t\r\n;()\"", c) != nullptr && c != '\0') break;
      if (c == '\\' && ++at_ < text_.size()) c = text_[at_];
      if (isControl(c) && c != '\t') return refuse("a control character");
    }
    if (isQuoted && (at_ >= text_.size() || text_[at_++] != '"')) return refuse("a quote that is not closed");
    words_.emplace_back(text_.substr(begin, std::min(at_, text_.size()) - begin));
    return 1;
  }

  int takeWords() {
    if (words_.empty()) return 1;
    if (words_.front().front() == '$') return takeDirective();
    ZoneRecord record;
    std::size_t next = 0;
    if (hasName_ && !nameIn(words_[next++], last_)) return 0;
    if (last_.empty()) return refuse("a record without a name");
    record.name = last_;
    bool hasClass = false;
    for (; next < words_.size(); ++next) {
      const std::string word = upper(words_[next]);
      const long long ttl = record.ttl < 0 ? ttlOf(words_[next]) : -1;
      if (ttl >= 0) {
        record.ttl = ttl;
      } else if (!hasClass && (word == "IN" || word == "CH" || word == "HS")) {
        if (word != "IN") return refuse(joined("the class ", word));
        hasClass = true;
      } else {
        break;
      }
    }
    if (next + 1 >= words_.size()) return refuse("no whole record");
    record.type = upper(words_[next]);
    record.data.assign(words_.begin() + static_cast<std::ptrdiff_t>(next) + 1, words_.end());
    if (endsWithHost(record.type)) makeAbsolute(record.data.back());
    record.begin = begin_;
    record.end = at_;
    records_.push_back(std::move(record));
    return 1;
  }

  int takeDirective() {
    const std::string word = upper(words_.front());
    if (word == "$TTL" && words_.size() == 2 && ttlOf(words_[1]) >= 0) return 1;
    if (word == "$ORIGIN" && words_.size() == 2) {
      origin_ = absolute(words_[1]);
      return 1;
    }
    return refuse(joined(words_.front(), " is not taken"));
  }

  std::string absolute(std::string_view name) const {
    if (name == "@") return origin_;
    return name.ends_with('.') ? lower(name) : joined(lower(name), ".", origin_);
  }

  int nameIn(std::string_view word, std::string& name) {
    const std::string whole = absolute(word);
    const std::string zone = joined(domain_, ".");
    const std::string below = joined(".", zone);
    if (whole == zone) {
      name.assign(1, kApex);
    } else if (whole.size() > below.size() && whole.ends_with(below)) {
      name = whole.substr(0, whole.size() - below.size());
    } else {
      return refuse(joined(word, " is not in the zone"));
    }
    return 1;
  }

  void makeAbsolute(std::string& host) const {
    if (origin_ == joined(domain_, ".") || host.ends_with('.')) return;
    host = absolute(host);
  }

  std::string_view text_;
  std::string domain_;
  std::string origin_;
  std::vector<ZoneRecord>& records_;
  std::vector<std::string> words_;
  std::string last_;
  std::string problem_;
  std::size_t at_ = 0;
  std::size_t begin_ = 0;
  std::size_t line_ = 1;
  bool hasName_ = false;
};

}  // namespace

std::string ZoneRecord::dataText() const {
  std::string text;
  for (const std::string& word : data) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

std::string_view ZoneRecord::tag() const {
  if ((type != "TXT" && type != "SPF") || data.empty()) return {};
  std::string_view first = data.front();
  if (first.starts_with('"')) first.remove_prefix(1);
  return first.substr(0, first.find_first_of(" ;\""));
}

std::string lineOf(const ZoneRecord& record) {
  const std::string ttl = record.ttl < 0 ? "" : std::to_string(record.ttl);
  return joined(record.name, "\t", ttl, "\tIN\t", record.type, "\t", record.dataText(), "\n");
}

int readZone(std::string_view text, std::string_view domain, std::vector<ZoneRecord>& records, Text& result) {
  return ZoneReader(text, domain, records).read(result);
}

unsigned long serialOf(const std::vector<ZoneRecord>& records) {
  for (const ZoneRecord& record : records) {
    if (record.type != "SOA" || record.data.size() <= kSerialWord) continue;
    const std::string& word = record.data[kSerialWord];
    unsigned serial = 0;
    const auto [behind, error] = std::from_chars(word.data(), word.data() + word.size(), serial);
    return error == std::errc() && behind == word.data() + word.size() ? serial : 0;
  }
  return 0;
}

}  // namespace zvtaskq
