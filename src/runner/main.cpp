// The task-queue runner: one start, one run of the queues, one exit.
#include "core/config/config.h"
#include "core/sys/log.h"
#include "runner/options.h"
#include "runner/startup.h"

int main(int argumentCount, char** arguments) {
  // Whatever is set on this server, and whoever asks: an update is judged by the answer.
  if (zvtaskq::asksVersion(argumentCount, arguments)) return zvtaskq::showVersion();
  // In this order: what the configuration has to say while it is read goes out without a time stamp.
  zvtaskq::Config conf("/usr/local/zorvane/conf/zorvane.conf");
  const zvtaskq::Log log;
  return zvtaskq::runProgram(argumentCount, arguments, conf);
}
