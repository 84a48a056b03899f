// One task line, parsed, as the rows of the action table see it.
#pragma once

#include <string_view>

#include "core/record/config_file.h"

namespace zvtaskq {

struct Task {
  /// The line as it was queued.
  const char* line;
  ConfigFile& record;

  /// The value of a key; "" when the line does not have it.
  const char* get(const char* key) const {
    const char* value = record.getValue(key);
    return value == nullptr ? "" : value;
  }
  /// The value of a key; null when the line does not have it or leaves it empty.
  const char* given(const char* key) const {
    const char* value = record.getValue(key);
    return value == nullptr || *value == '\0' ? nullptr : value;
  }
  bool is(const char* key, std::string_view value) const { return value == get(key); }
  const char* action() const { return get("action"); }
  const char* value() const { return get("value"); }
  const char* type() const { return get("type"); }
};

/// A word and what is done for it: a row of a table of variants.
struct TaskRow {
  const char* word;
  void (*run)(const Task&);
};

/// Runs the row whose word is `word`. False when there is none.
template <std::size_t N>
bool runRow(const TaskRow (&rows)[N], std::string_view word, const Task& task) {
  for (const TaskRow& row : rows) {
    if (word != row.word) continue;
    row.run(task);
    return true;
  }
  return false;
}

/// Fills `selected` with the line's select0, select1, ... up to the first that is missing, in their order.
void selectedOf(const Task& task, ListFile& selected);

/// Queues a line for later; a failure is logged.
void queueTask(const char* action, const char* value, const char* type = nullptr);

}  // namespace zvtaskq
