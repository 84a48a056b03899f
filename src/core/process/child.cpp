#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/process/child.h"
#include "core/process/launch.h"
#include "core/process/talk.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

struct Pipe {
  Descriptor reader;
  Descriptor writer;
};

/// Above 2: a descriptor that is to become 0, 1 or 2 of a child must not stand where another is to go.
Descriptor raised(int fd) {
  return Descriptor(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
}

int makePipe(Pipe& into) {
  std::array<int, 2> ends{};
  if (failPoint("process.pipe") || ::pipe2(ends.data(), O_CLOEXEC) != 0) return 0;
  into.reader = Descriptor(ends[0]);
  into.writer = Descriptor(ends[1]);
  for (Descriptor* end : {&into.reader, &into.writer}) {
    if (end->get() < 3) *end = raised(end->get());
    if (!*end) return 0;
  }
  return 1;
}

void setNonBlocking(const Descriptor& fd) {
  ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
}

/// The child's ends of everything, and ours.
struct Streams {
  Pipe input;
  Pipe output;
  Pipe report;
  Descriptor given[2];
  Descriptor nowhere;
};

bool has(const ChildPlan& plan, ChildPlan::Stream what) {
  return plan.output == what || plan.errors == what;
}

int openStreams(const ChildPlan& plan, Streams& streams) {
  if (!makePipe(streams.report) || !makePipe(streams.input)) return 0;
  if (has(plan, ChildPlan::Stream::collect) && !makePipe(streams.output)) return 0;
  if (has(plan, ChildPlan::Stream::discard)) {
    streams.nowhere = Descriptor(sys::open("/dev/null", O_WRONLY));
    if (streams.nowhere && streams.nowhere.get() < 3) streams.nowhere = raised(streams.nowhere.get());
    if (!streams.nowhere) return 0;
  }
  const int given[2] = {plan.inputDescriptor, plan.outputDescriptor};
  for (int i = 0; i < 2; ++i) {
    if (given[i] < 0) continue;
    streams.given[i] = raised(given[i]);
    if (!streams.given[i]) return 0;
  }
  return 1;
}

int sourceOf(ChildPlan::Stream stream, const Streams& streams) {
  if (stream == ChildPlan::Stream::collect) return streams.output.writer.get();
  if (stream == ChildPlan::Stream::discard) return streams.nowhere.get();
  return -1;
}

/// The texts as the null-ended array of pointers that exec wants.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

pid_t launchProgram(const ChildPlan& plan, const Streams& streams, Ids identity) {
  std::vector<std::string> arguments = plan.arguments;
  std::vector<std::string> environment = cleanEnvironment(identity, plan.language);
  addVariables(environment, plan.variables);
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);

  ChildLaunch launch;
  launch.path = plan.path.c_str();
  launch.arguments = argumentPointers.data();
  launch.environment = plan.currentEnvironment ? environ : environmentPointers.data();
  if (!plan.workingDirectory.empty()) launch.workingDirectory = plan.workingDirectory.c_str();
  launch.identity = identity;
  launch.streams[0] = streams.given[0] ? streams.given[0].get() : streams.input.reader.get();
  launch.streams[1] = streams.given[1] ? streams.given[1].get() : sourceOf(plan.output, streams);
  launch.streams[2] = sourceOf(plan.errors, streams);
  launch.report = streams.report.writer.get();
  std::fflush(stdout);
  return launchChild(launch);
}

}  // namespace

ChildPlan ChildPlan::shell(std::string command) {
  ChildPlan plan;
  plan.path = "/bin/sh";
  plan.arguments = {"/bin/sh", "-c", command};
  plan.name = std::move(command);
  return plan;
}

ChildPlan ChildPlan::program(std::string path, std::vector<std::string> arguments) {
  ChildPlan plan;
  plan.arguments = std::move(arguments);
  plan.arguments.insert(plan.arguments.begin(), path);
  plan.name = path;
  plan.path = std::move(path);
  plan.direct = true;
  return plan;
}

Child::Child(Child&& other) noexcept
    : pid_(other.pid_),
      name_(std::move(other.name_)),
      direct_(other.direct_),
      identity_(other.identity_),
      inputs_(std::move(other.inputs_)),
      outputLimit_(other.outputLimit_),
      settleTime_(other.settleTime_),
      timeLimit_(other.timeLimit_),
      atLimit_(other.atLimit_),
      startedAt_(other.startedAt_),
      in_(std::move(other.in_)),
      out_(std::move(other.out_)),
      report_(std::move(other.report_)) {
  other.pid_ = -1;
}

Child::~Child() {
  if (!started()) return;
  killGroup(pid_);
  static_cast<void>(finish());
}

Child Child::start(const ChildPlan& plan) {
  Child child;
  Streams streams;
  if (!openStreams(plan, streams)) {
    errorLog("Unable to make the pipes for %s: %s", plan.name.c_str(), std::strerror(errno));
    return child;
  }
  child.name_ = plan.name;
  child.direct_ = plan.direct;
  child.identity_ = plan.identity.value_or(effectiveIds());
  child.inputs_ = plan.inputs;
  child.outputLimit_ = plan.outputLimit;
  child.settleTime_ = plan.settleTime;
  child.timeLimit_ = plan.timeLimit;
  child.atLimit_ = plan.atLimit;
  child.startedAt_ = std::chrono::steady_clock::now();
  child.pid_ = launchProgram(plan, streams, child.identity_);
  if (!child.started()) {
    errorLog("Unable to start a process for %s: %s", plan.name.c_str(), std::strerror(errno));
    return child;
  }
  if (!streams.given[0]) child.in_ = std::move(streams.input.writer);
  child.out_ = std::move(streams.output.reader);
  child.report_ = std::move(streams.report.reader);
  if (child.in_) setNonBlocking(child.in_);
  if (child.out_) setNonBlocking(child.out_);
  return child;
}

ChildResult Child::finish() {
  ChildResult result;
  if (!started()) return result;
  const int ends = ChildTalk(*this, result).run();
  int status = 0;
  if (ends) result.status = do_waitpid(pid_, status, name_.c_str());
  pid_ = -1;
  in_.reset();
  out_.reset();
  report_.reset();
  return result;
}

ChildResult runChild(const ChildPlan& plan) {
  return Child::start(plan).finish();
}

}  // namespace zvtaskq
