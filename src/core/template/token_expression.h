// The conditions of a template's conditional blocks.
#pragma once

#include <optional>
#include <string_view>

#include "core/template/token_values.h"

namespace zvtaskq {

/// The longest operand of a condition, in characters.
inline constexpr std::size_t kLongestOperand = 256;

/// What a conditional block stands for: the text of the branch that its condition chooses, a part of `block`, which is
/// empty when the condition is false and there is no other branch. The block is, with "|" as `delimiter`,
/// "|*if CONDITION|THEN|*else|ELSE|*endif|"; the else part may be missing. Nothing, with an error-log line that says
/// why, for a block of another form.
std::optional<std::string_view> chooseBranch(std::string_view block, char delimiter, const TokenValues& values);

/// Whether the condition holds. An operand in double quotes is that text, any other the name of a token and stands for
/// its value. Operators:
/// - none (empty): a quoted left operand is true, a name is true when it is there, with or without a value;
/// - "=", "!=": the texts are equal, or not; a missing value equals an empty one;
/// - ">", "<", ">=", "<=": both are numbers, compared as such (else false, and "%s is not a number" in the error log);
/// - "!" with an empty left operand: the right one is not there.
/// An operand whose closing quote is missing, or another operator, gives an error-log line and false.
bool evaluateExpression(std::string_view left, std::string_view operation, std::string_view right,
                        const TokenValues& values);

}  // namespace zvtaskq
