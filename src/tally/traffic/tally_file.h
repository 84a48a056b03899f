// Tally files: a line an amount, "<bytes>=<URL-encoded record>". The record's `type` says where the traffic came from.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zvtaskq {

class LineReader;

/// The bytes that a tally file sums up to: `bandwidth.tally`, `bandwidth.reseller.tally`, `ZorvaneUsage.bytes`. Lines
/// that do not begin with a finite number above 0 count nothing. An e-mail (`type` "email") whose `id` stood in an
/// earlier line is billed once. A last line without its line feed is not read. A missing file, and null, are 0.
///
/// Reads as root, and leaves the process at nobody.
double getTallyTotal(const char* path);

/// The same of the lines that a reader hands out, up to `most` bytes of them.
double sumTallyLines(LineReader& reader, long long most);

/// The pairs of a line's record. The views are of the text read last, or of this object.
class TallyRecord {
 public:
  /// Takes the place of what was read before.
  void read(std::string_view encoded);
  /// The decoded value of the last pair of that name; empty when there is none.
  std::string_view operator[](std::string_view name) const;
  /// The value as a finite number of at least 0; 0 for anything else.
  double number(std::string_view name) const;

 private:
  void readPlain(std::string_view encoded);
  void readEscaped(std::string_view encoded);

  std::vector<std::pair<std::string_view, std::string_view>> pairs_;
  std::string room_;
};

struct TallyLine {
  /// Bytes, finite and above 0.
  double amount = 0;
  /// What stands behind the first "=", still encoded; empty when there is none.
  std::string_view record;
};

/// Takes a line (without its line feed) apart. False when it has no amount that counts.
bool readTallyLine(std::string_view line, TallyLine& out);

/// What is to happen with each line of a tally file.
class TallyVisitor {
 public:
  virtual ~TallyVisitor() = default;
  virtual void meet(const TallyLine& line) = 0;
};

/// Meets the whole lines of a tally file that count, in their order. A missing file has none. Works under the identity
/// of the moment. 0 with an error-log line when it cannot be read to its end.
[[nodiscard]] int visitTallyFile(const char* path, TallyVisitor& visitor);

}  // namespace zvtaskq
