// zvcert: what certificates are good for. Requests are the lines of standard input, records with one of
//   pem     the text of a file with certificate, chain and key: whether a web server would take it
//   dates   a certificate: when it begins and ends, `from` and `until` in seconds since the epoch
// Answers are the lines of standard output: "result=done" with what was asked for, or "result=failed" and `error`. It
// reads no file. Exit status: 0; 2 when it cannot go on.
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

std::string answerTo(const ConfigFile& request) {
  const char* certificate = request.getValue("dates");
  Dates dates;
  const std::string error =
      certificate != nullptr ? readDates(certificate, dates) : whyNoCertificate(request.getOrEmpty("pem"));
  std::string answer;
  addPair(answer, "result", error.empty() ? "done" : "failed");
  if (!error.empty()) addPair(answer, "error", error);
  if (certificate != nullptr && error.empty()) {
    addPair(answer, "from", std::to_string(dates.from));
    addPair(answer, "until", std::to_string(dates.until));
  }
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
    const std::string answer = answerTo(request);
    if (sys::writeAll(1, answer) < answer.size()) return kWrongCall;
  }
  return requests.failed() ? kWrongCall : 0;
}
