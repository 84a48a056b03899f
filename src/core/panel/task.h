// One task line, parsed, and the rows that say what is done for it.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "core/record/config_file.h"

namespace zvtaskq {

struct Task {
  /// The line as it was queued, for `printableLine` alone: it may hold a password.
  const char* line;
  ConfigFile& record;

  /// The value of a key; "" when the line does not have it.
  const char* get(const char* key) const { return record.getOrEmpty(key); }
  /// The value of a key; null when the line does not have it or leaves it empty.
  const char* getOrNull(const char* key) const {
    const char* value = record.getValue(key);
    return value == nullptr || *value == '\0' ? nullptr : value;
  }
  bool is(const char* key, std::string_view value) const { return value == get(key); }
  /// Whether a key that is a switch is on: it is there, and its value is not empty, "0", "no" or "off", in any case.
  bool isOn(const char* key) const;
  const char* action() const { return get("action"); }
  const char* value() const { return get("value"); }
  const char* type() const { return get("type"); }
};

/// What is done for one kind of line. The room that does the work offers the row in its actions.h.
struct ActionRow {
  const char* action;
  /// The key that tells the variants of the action apart, and its value for this one; null for an action without any.
  const char* key;
  const char* word;
  /// Carries the line out. Runs as nobody and leaves it. 0 when the line was refused or failed; the logs or a notice
  /// say so.
  int (*run)(const Task& task);
  /// What it does, for people who look at a queue: begins with a verb, no full stop.
  const char* summary;

  bool takes(const Task& task) const { return key == nullptr || task.is(key, word); }
};
using ActionRows = std::span<const ActionRow>;

/// A queue line as logs, debug output and the program location may show it: without the values of passwords, however
/// their keys or a record within a value are encoded. A password's key is one that says so in its name.
std::string printableLine(const char* line);
/// Empties what `printableLine` leaves out in a parsed line that others may see.
void hidePasswords(ConfigFile& record);
/// Prints the pairs of a parsed line on standard output, as far as they may be shown.
void printContents(const Task& task);

/// Fills `selected` with the line's select0, select1, ... up to the first that is missing, in their order.
void selectedOf(const Task& task, ListFile& selected);

/// Queues a line for later (`pushOnTaskQueue`); a failure is logged.
void queueTask(const char* action, const char* value, const char* type = nullptr);

}  // namespace zvtaskq
