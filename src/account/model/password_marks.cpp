#include "account/model/password_marks.h"

namespace zvtaskq {

namespace {

/// What a password is made of that is locked, and none of anybody's.
bool isLocked(std::string_view field) {
  return field.find_first_not_of("!*") == std::string_view::npos;
}

}  // namespace

bool isSuspendedPassword(std::string_view field) {
  return field.starts_with(kSuspendedMark) && !isLocked(field);
}

bool isLivePassword(std::string_view field) {
  return !field.starts_with(kSuspendedMark) && !isLocked(field);
}

}  // namespace zvtaskq
