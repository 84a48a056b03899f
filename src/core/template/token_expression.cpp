#include "core/template/token_expression.h"

#include <cstdlib>
#include <string>

#include "core/sys/log.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kOperatorCharacters = "=!<>";
/// Where the condition of "|*if CONDITION|" begins, the blank before it included.
constexpr std::size_t kBehindIf = 4;
/// As much of a block as a log line shows.
constexpr std::size_t kShown = 200;

std::string shown(std::string_view block) {
  return std::string(block.substr(0, kShown));
}

std::string marker(char delimiter, std::string_view word) {
  return joined(std::string(1, delimiter), word, std::string(1, delimiter));
}

/// A condition as it stands in its block.
struct Condition {
  std::string_view left;
  std::string_view operation;
  std::string_view right;
  /// Where the text behind the condition begins.
  std::size_t end = 0;
};

bool complain(const char* what, std::string_view block) {
  errorLogAndDebug(200, "%s: %s", what, shown(block).c_str());
  return false;
}

bool parseOperation(std::string_view block, char delimiter, std::size_t at, Condition& condition) {
  const std::size_t behind = block.find_first_not_of(kOperatorCharacters, at);
  if (behind == std::string_view::npos) return complain("Could not find the end of the operator", block);
  const std::size_t end = block.find(delimiter, behind);
  if (end == std::string_view::npos) return complain("Could not find the 2nd variable", block);
  condition.operation = block.substr(at, behind - at);
  condition.right = trimmed(block.substr(behind, end - behind));
  condition.end = end + 1;
  return true;
}

bool parseCondition(std::string_view block, char delimiter, Condition& condition) {
  if (block.size() <= kBehindIf || block.substr(1, kBehindIf - 1) != "*if" ||
      kBlanks.find(block[kBehindIf]) == std::string_view::npos) {
    errorLog("no space or tab after 'if'");
    return false;
  }
  const std::size_t at = block.find_first_of(joined(kOperatorCharacters, std::string(1, delimiter)), kBehindIf + 1);
  if (at == std::string_view::npos) {
    errorLogAndDebug(200, "Could not find operator '=!<>|' from %s", shown(block).c_str());
    return false;
  }
  condition.left = trimmed(block.substr(kBehindIf + 1, at - kBehindIf - 1));
  condition.end = at + 1;
  if (block[at] != delimiter && !parseOperation(block, delimiter, at, condition)) return false;
  if (condition.left.size() <= kLongestOperand && condition.right.size() <= kLongestOperand) return true;
  return complain("An operand is too long", block);
}

/// What one side of a condition stands for.
struct Operand {
  bool valid = true;
  bool quoted = false;
  /// Null for a name without a value.
  std::optional<std::string> text;
};

Operand readOperand(std::string_view operand, const TokenValues& values) {
  Operand read;
  read.quoted = operand.starts_with('"');
  if (!read.quoted) {
    const char* value = values.find(operand);
    if (value != nullptr) read.text = value;
    return read;
  }
  const std::size_t closing = operand.find('"', 1);
  read.valid = closing != std::string_view::npos;
  if (read.valid) {
    read.text = operand.substr(1, closing - 1);
  } else {
    errorLog("Could not find closing \" in %s", std::string(operand).c_str());
  }
  return read;
}

bool areEqual(const Operand& left, const Operand& right) {
  return left.text.value_or("") == right.text.value_or("");
}

/// Decimal notation only: what else the C library takes for a number, nobody who writes a template does.
bool readNumber(const Operand& operand, double& number) {
  const std::string text = operand.text.value_or("");
  char* end = nullptr;
  number = std::strtod(text.c_str(), &end);
  if (end != text.c_str() && *end == '\0' && text.find_first_not_of("0123456789+-.eE") == std::string::npos)
    return true;
  errorLog("%s is not a number", text.c_str());
  return false;
}

struct Comparison {
  std::string_view operation;
  bool (*holds)(double left, double right);
};
constexpr Comparison kComparisons[] = {{">", [](double left, double right) { return left > right; }},
                                       {"<", [](double left, double right) { return left < right; }},
                                       {">=", [](double left, double right) { return left >= right; }},
                                       {"<=", [](double left, double right) { return left <= right; }}};

}  // namespace

bool evaluateExpression(std::string_view left, std::string_view operation, std::string_view right,
                        const TokenValues& values) {
  const Operand first = readOperand(left, values);
  const Operand second = readOperand(right, values);
  if (!first.valid || !second.valid) return false;
  if (operation.empty()) return first.quoted || values.holds(left);
  if (operation == "=") return areEqual(first, second);
  if (operation == "!=") return !areEqual(first, second);
  if (operation == "!" && left.empty()) return !second.quoted && !values.holds(right);
  for (const Comparison& row : kComparisons) {
    double a = 0, b = 0;
    if (row.operation == operation) return readNumber(first, a) && readNumber(second, b) && row.holds(a, b);
  }
  errorLog("There is no operator '%s'", std::string(operation).c_str());
  return false;
}

std::optional<std::string_view> chooseBranch(std::string_view block, char delimiter, const TokenValues& values) {
  Condition condition;
  if (!parseCondition(block, delimiter, condition)) return std::nullopt;
  const bool holds = evaluateExpression(condition.left, condition.operation, condition.right, values);
  const std::string_view branches = block.substr(condition.end);
  const std::size_t end = branches.find(marker(delimiter, "*endif"));
  if (end == std::string_view::npos) {
    complain("Cannot find |*endif|", block);
    return std::nullopt;
  }
  const std::string otherwise = marker(delimiter, "*else");
  const std::size_t other = branches.substr(0, end).find(otherwise);
  if (holds) return branches.substr(0, std::min(other, end));
  if (other == std::string_view::npos) return branches.substr(0, 0);
  return branches.substr(other + otherwise.size(), end - other - otherwise.size());
}

}  // namespace zvtaskq
