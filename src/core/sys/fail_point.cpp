#include "core/sys/fail_point.h"

#ifdef ZVTASKQ_FAIL_POINTS

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

namespace {

struct Rule {
  std::string name;
  std::string action;
  long skip = 0;
};

struct ErrorName {
  std::string_view name;
  int number;
};
constexpr ErrorName kErrors[] = {{"ENOSPC", ENOSPC}, {"EIO", EIO},       {"EDQUOT", EDQUOT}, {"EPERM", EPERM},
                                 {"EACCES", EACCES}, {"EROFS", EROFS},   {"EMFILE", EMFILE}, {"EAGAIN", EAGAIN},
                                 {"ENOLCK", ENOLCK}, {"EINVAL", EINVAL}, {"EXDEV", EXDEV},   {"ENOMEM", ENOMEM},
                                 {"ENOSYS", ENOSYS}};

std::string_view nextField(std::string_view& text, char stop) {
  const std::size_t end = text.find(stop);
  const std::string_view field = text.substr(0, end);
  text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  return field;
}

std::vector<Rule> parsePlan(std::string_view plan) {
  std::vector<Rule> rules;
  while (!plan.empty()) {
    std::string_view text = nextField(plan, ',');
    Rule rule;
    rule.name = nextField(text, ':');
    rule.action = nextField(text, ':');
    std::from_chars(text.data(), text.data() + text.size(), rule.skip);
    rules.push_back(std::move(rule));
  }
  return rules;
}

std::vector<Rule>& rules() {
  static std::vector<Rule> active = [] {
    const char* plan = std::getenv("ZVTASKQ_FAIL");
    return parsePlan(plan == nullptr ? std::string_view() : std::string_view(plan));
  }();
  return active;
}

const char* scope = "";

bool matches(const Rule& rule, std::string_view point) {
  const std::string_view name = rule.name;
  if (name == "*") return true;
  if (name.ends_with(".*")) return point.starts_with(name.substr(0, name.size() - 1));
  return point == name;
}

FailAction carryOut(const Rule& rule) {
  if (rule.action == "kill") ::kill(::getpid(), SIGKILL);
  if (rule.action == "short") return FailAction::shortWrite;
  errno = EIO;
  for (const ErrorName& error : kErrors) {
    if (error.name == rule.action) errno = error.number;
  }
  return FailAction::error;
}

}  // namespace

FailScope::FailScope(const char* name) : before_(scope) {
  scope = name;
}

FailScope::~FailScope() {
  scope = before_;
}

FailAction failAction(const char* call) {
  if (rules().empty()) return FailAction::none;
  std::string point(call);
  if (point.find('.') == std::string::npos) point = std::string(scope) + "." + call;
  for (Rule& rule : rules()) {
    if (!matches(rule, point)) continue;
    if (rule.skip-- > 0) continue;
    return carryOut(rule);
  }
  return FailAction::none;
}

FailLater::FailLater(const char* call) : error_(failPoint(call) ? errno : 0) {}

bool FailLater::take() {
  if (error_ == 0) return false;
  errno = error_;
  error_ = 0;
  return true;
}

void setFailPlan(const char* plan) {
  rules() = parsePlan(plan == nullptr ? std::string_view() : plan);
}

}  // namespace zvtaskq

#endif
