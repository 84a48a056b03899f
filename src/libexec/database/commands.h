// What the panel asks of the database server, one URL-encoded record a line, and the answers in the same form.
#pragma once

#include <string>

#include "core/record/config_file.h"
#include "libexec/database/server.h"

namespace zvtaskq {

/// Carries one request out and gives the lines of its answer: what was found, and at its end a line with `result`,
/// which is "done", or "failed" with `error`. When the connection was lost there is no such end.
std::string answerTo(const ConfigFile& request, DatabaseServer& server);

}  // namespace zvtaskq
