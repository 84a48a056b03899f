// zvcert: says of certificates with their keys whether a web server would take them. Requests are the lines of standard
// input, records with `pem`: the text of a file with certificate, chain and key. Answers are those of standard output:
// "result=done", or "result=failed" and `error`. It reads no file. Exit status: 0; 2 when it cannot go on.
#include <cstdio>

#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/text/post_string.h"
#include "libexec/certificate/judge.h"

using namespace zvtaskq;

namespace {

constexpr int kWrongCall = 2;
constexpr long long kLongestRequest = 4LL * 1024 * 1024;

std::string answerTo(const char* pem) {
  const std::string error = whyNoCertificate(pem == nullptr ? "" : pem);
  std::string answer;
  addPair(answer, "result", error.empty() ? "done" : "failed");
  if (!error.empty()) addPair(answer, "error", error);
  return answer += '\n';
}

}  // namespace

int main() {
  // It is told keys.
  forbidDumps();
  LineReader requests(0, kLongestRequest);
  std::string_view line;
  ConfigFile request(nullptr);
  while (requests.next(line)) {
    request.empty();
    request.fillFromPost(line);
    const std::string answer = answerTo(request.getValue("pem"));
    if (sys::writeAll(1, answer) < answer.size()) return kWrongCall;
  }
  return requests.failed() ? kWrongCall : 0;
}
