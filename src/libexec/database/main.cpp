// zvdb FILE SECONDS [CONFIGURATION]: asks the database server what the panel wants to know of it, and has it make what
// the panel wants made. FILE holds the panel's log-in; a statement may take SECONDS; CONFIGURATION, zorvane.conf, is
// needed by what makes and changes things of an account. Requests are the lines of standard input, answers those of
// standard output. Started by root it is "nobody" from when it has read both. Exit status: 0; 2 for a wrong call and a
// file that cannot be read; 3 when the server does not answer. Standard error says why.
#include <cstdio>
#include <cstdlib>

#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/sys/identity.h"
#include "libexec/database/commands.h"

using namespace zvtaskq;

namespace {

constexpr int kWrongCall = 2;
constexpr int kNoAnswer = 3;
constexpr long long kLongestRequest = 64LL * 1024;

int say(const std::string& words, int status) {
  std::fprintf(stderr, "zvdb: %s\n", printable(words).c_str());
  return status;
}

int serve(DatabaseServer& server, const DatabaseRules& rules) {
  LineReader requests(0, kLongestRequest);
  std::string_view line;
  ConfigFile request(nullptr);
  while (requests.next(line)) {
    request.empty();
    request.fillFromPost(line);
    const std::string answer = answerTo(request, server, rules);
    if (sys::writeAll(1, answer) < answer.size()) return kWrongCall;
    if (server.isLost()) return say(server.error(), kNoAnswer);
  }
  return requests.failed() ? say("cannot read the requests", kWrongCall) : 0;
}

}  // namespace

int main(int count, char** words) {
  const int seconds = count == 3 || count == 4 ? std::atoi(words[2]) : 0;
  if (seconds <= 0) return say("usage: zvdb FILE SECONDS [CONFIGURATION]", kWrongCall);
  Credentials credentials;
  std::string error;
  if (!readCredentials(words[1], credentials, error)) return say(error, kWrongCall);
  DatabaseRules rules;
  if (count == 4) rules.read(words[3]);
  if (effectiveIds().user == 0 && !becomeForGood(nobodyIds())) return say("cannot become nobody", kWrongCall);
  // It knows a password, and everything else that runs as nobody could look for it.
  forbidDumps();
  DatabaseServer server;
  if (!server.connect(credentials, seconds)) return say(server.error(), kNoAnswer);
  return serve(server, rules);
}
