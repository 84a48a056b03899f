// zvcert: all that is done with certificates, in a process of its own. Requests are the lines of standard input,
// records with one of
//   pem     the text of a file with certificate, chain and key: whether a web server would take it; with `names` also
//           whether it is what was asked for by these host names, separated by colons
//   dates   a certificate: when it begins and ends, `from` and `until` in seconds since the epoch
//   order   host names, separated by colons: a new `key`, and the `request` for one certificate for all of them
// Answers are the lines of standard output: "result=done" with what was asked for, or "result=failed" and `error`. It
// reads no file. Exit status: 0; 2 when it cannot go on.
#include <cstdio>

#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/text/post_string.h"
#include "libexec/certificate/judge.h"
#include "libexec/certificate/order.h"

using namespace zvtaskq;

namespace {

constexpr int kWrongCall = 2;
constexpr long long kLongestRequest = 4LL * 1024 * 1024;

std::string judge(const ConfigFile& request, std::string&) {
  const char* pem = request.getOrEmpty("pem");
  const char* names = request.getValue("names");
  std::string why = whyNoCertificate(pem);
  return why.empty() && names != nullptr ? whyNotFor(pem, names) : why;
}

std::string date(const ConfigFile& request, std::string& answer) {
  Dates dates;
  std::string why = readDates(request.getOrEmpty("dates"), dates);
  addPair(answer, "from", std::to_string(dates.from));
  addPair(answer, "until", std::to_string(dates.until));
  return why;
}

std::string order(const ConfigFile& request, std::string& answer) {
  Order made;
  std::string why = makeOrder(request.getOrEmpty("order"), made);
  addPair(answer, "key", made.key);
  addPair(answer, "request", made.request);
  return why;
}

struct Work {
  const char* key;
  /// What is wrong; empty when it is done. What was asked for is added to the answer.
  std::string (*run)(const ConfigFile& request, std::string& answer);
};
constexpr Work kWorks[] = {{"dates", date}, {"order", order}, {"pem", judge}};

std::string answerTo(const ConfigFile& request) {
  std::string error = "there is no such request";
  std::string found;
  for (const Work& work : kWorks) {
    if (!request.existsParam(work.key)) continue;
    error = work.run(request, found);
    break;
  }
  std::string answer;
  addPair(answer, "result", error.empty() ? "done" : "failed");
  if (!error.empty()) addPair(answer, "error", error);
  if (error.empty() && !found.empty()) answer.append("&").append(found);
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
