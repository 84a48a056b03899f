#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "core/process/child.h"
#include "core/process/execute.h"
#include "support/fixtures.h"

namespace {
int openDescriptors() {
  const fs::directory_iterator all("/proc/self/fd");
  return static_cast<int>(std::distance(begin(all), end(all)));
}

bool hasChildren() {
  return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD;
}

std::string outputOf(const char* command, std::optional<Ids> identity = std::nullopt) {
  ChildPlan plan = ChildPlan::shell(command);
  plan.identity = identity;
  plan.timeLimit = 20;
  return runChild(plan).output;
}
}  // namespace

TEST(Execute, ReturnsStatusAndOutput) {
  for (const auto& [command, maxOutput, fd, direct, status, text, logged] :
       Rows<const char*, int, int, int, int, const char*, const char*>{
           {"exit 3", 0, 1, 0, 3, "exit 3", ""},
           {"kill -9 $$", 0, 1, 0, 9, "kill -9 $$", "killed by signal 9 (kill -9 $$)"},
           {"echo a; echo b >&2", 16, 1, 0, 0, "a\n", ""},
           {"echo a >/dev/null; echo b >&2", 16, 2, 0, 0, "b\n", ""},
           {"echo a; echo b >&2; echo c", 16, 3, 0, 0, "a\nb\nc\n", ""},
           {"/bin/echo a", 16, 1, 1, 127, "", "(1)Execl error on /bin/echo a : No such file"},
           {"/no/such", 0, 1, 1, 127, "/no/such", "(1)Execl error on /no/such : No such file"},
           {"/no/such 2>/dev/null", 16, 1, 0, 127, "", ""},
           // What nobody reads does not block.
           {"yes | head -c 3000000; exit 4", 0, 1, 0, 4, "yes | head -c 3000000; exit 4", ""}}) {
    const LogCapture logs;
    Text said = Text::copyOf(command);
    EXPECT_EQ(execute(said, maxOutput, fd, direct), status) << command;
    EXPECT_STREQ(said, text) << command;
    EXPECT_TRUE(holds(logs.errors(), logged)) << command;
    EXPECT_EQ(logs.errors().empty(), *logged == '\0') << command;
  }
  EXPECT_FALSE(hasChildren());
}

TEST(Execute, DirectSeesItsNameAndTheCurrentEnvironment) {
  const Folder folder;
  const std::string program = folder.path("show");
  fs::create_symlink("/usr/bin/env", program);
  ::setenv("ZV_OF_OURS", "1", 1);
  Text direct = Text::copyOf(program.c_str());
  EXPECT_EQ(execute(direct, 16, 1, 1), 0);
  EXPECT_TRUE(holds(direct.view(), "ZV_OF_OURS=1\n"));
  Text shell = Text::copyOf("env");
  EXPECT_EQ(execute(shell, 16, 1, 0), 0);
  EXPECT_FALSE(holds(shell.view(), "ZV_OF_OURS"));
  ::unsetenv("ZV_OF_OURS");
  fs::remove(program);
  // A program that cannot do what it is called says by which name it was called.
  fs::create_symlink("/bin/cp", program);
  direct = program.c_str();
  EXPECT_EQ(execute(direct, 16, 2, 1), 1);
  EXPECT_EQ(direct.view().substr(0, 6), "/show:");
}

TEST(Execute, FeedsAnswers) {
  Text command = Text::copyOf("cat");
  EXPECT_TRUE(executestdin(command, "as it is", 16, 1, 0) == 0 && command.view() == "as it is");
  command = "read a; read b; echo \"$b,$a\"";
  EXPECT_TRUE(executeDBLstdin(command, "one", "two\n", 16, 1, 0) == 0 && command.view() == "two,one\n");
  command = "read a; read b; read c; echo \"$c$b$a\"; exit 5";
  EXPECT_TRUE(executeTRPLstdin(command, "1", "2", "3", 16, 1, 0) == 5 && command.view() == "321\n");
  // Three inputs larger than any pipe, to a child that floods before it listens.
  const std::string big(2000000, 'i');
  command = "head -c 3000000 /dev/zero | tr '\\0' o; cat";
  EXPECT_EQ(executeTRPLstdin(command, big.c_str(), big.c_str(), big.c_str(), 512, 1, 0), 0);
  EXPECT_EQ(command.view().size(), 3000000U + 3 * 2000001U);
  // A child that does not listen at all: no signal reaches us, no error counts.
  command = "exec 0<&-; echo done";
  EXPECT_TRUE(executestdin(command, big.c_str(), 16, 1, 0) == 0 && command.view() == "done\n");
}

TEST(Child, IsReallyTheUser) {
  const Ids nobody = nobodyIds();
  for (const auto& [name, effective, wanted, want] :
       Rows<const char*, Ids, std::optional<Ids>, Ids>{{"that of the moment", nobody, std::nullopt, nobody},
                                                       {"one that is named", kRootIds, nobody, nobody},
                                                       {"root from nobody", nobody, kRootIds, kRootIds},
                                                       {"another from nobody", nobody, Ids{1, 1}, Ids{1, 1}}}) {
    ASSERT_TRUE(switchEffective(effective));
    const std::string status = outputOf("cat /proc/self/status", wanted);
    EXPECT_TRUE(effectiveIds() == effective) << name;
    ASSERT_TRUE(switchEffective(kRootIds));
    for (const auto& [line, id] : {std::pair{"\nUid:", want.user}, {"\nGid:", want.group}}) {
      const std::string one = "\t" + std::to_string(id);
      EXPECT_TRUE(holds(status, line + one + one + one + one + "\n")) << name;
    }
    EXPECT_TRUE(holds(status, "\nGroups:\t \n")) << name;
  }
  Text command = Text::copyOf("id -un");
  EXPECT_EQ(executeAsUser("nobody", command, 16, 1, 0), 0);
  EXPECT_STREQ(command, "nobody\n");
  const LogCapture logs;
  command = "id";
  EXPECT_EQ(executeAsUser("nosuchuser", command, 16, 1, 0), -1);
  EXPECT_TRUE(holds(logs.errors(), "nosuchuser"));
}

TEST(Child, DoesNotRunAsAnybodyElse) {
  const Folder folder;
  EXPECT_EQ(inAProcessOfItsOwn([&] {
              ChildPlan plan = ChildPlan::shell("touch " + folder.path("mark"));
              plan.identity = kRootIds;
              return becomeForGood(nobodyIds()) && runChild(plan).status == 127;
            }),
            1);
  EXPECT_FALSE(exists(folder.path("mark")));
}

TEST(Child, InheritsNothing) {
  const LogCapture logs;
  const int left = ::open("/dev/null", O_RDONLY), far = ::fcntl(left, F_DUPFD, 90);
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGUSR1, SIG_IGN);
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &blocked, &before);
  ::setenv("LD_LIBRARY_PATH", "/tmp", 1);
  ::setenv("BASH_ENV", "/tmp/x", 1);
  const std::string status = outputOf("cat /proc/self/status");
  const std::string descriptors = outputOf("ls /proc/self/fd; umask; test $(ps -o sid= -p $$) = $$ && echo leads");
  const std::string environment = outputOf("exec env"), names = outputOf("env | sed s/=.*// | sort | tr '\\n' ' '");
  const std::string sleepy = outputOf("kill -TERM $$; echo still here");
  ::unsetenv("LD_LIBRARY_PATH");
  ::unsetenv("BASH_ENV");
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  ::signal(SIGUSR1, SIG_DFL);
  ::close(left);
  ::close(far);
  EXPECT_TRUE(holds(status, "SigIgn:\t0000000000000000\n") && holds(status, "SigBlk:\t0000000000000000\n"));
  EXPECT_EQ(sleepy, "");
  // Number 3 is the folder that ls reads.
  EXPECT_EQ(descriptors, "0\n1\n2\n3\n0022\nleads\n");
  // The shell itself adds PWD.
  EXPECT_EQ(names, "HOME LANG LOGNAME PATH PWD SHELL USER ");
  EXPECT_TRUE(holds(environment, "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n"));
}

TEST(Child, IsAtHomeWhereItsUserIs) {
  for (const auto& [identity, want] :
       Rows<Ids, const char*>{{kRootIds, "/root root root\n"},
                              {{getUID("mail"), getGID("mail", 0)}, "/var/mail mail mail\n"},
                              {{4242, 4242}, "/ 4242 4242\n"}})
    EXPECT_EQ(outputOf("echo $HOME $USER $LOGNAME", identity), want);
  EXPECT_EQ(outputOf("echo $USER"), "root\n");
  ASSERT_TRUE(switchEffective(nobodyIds()));
  EXPECT_EQ(outputOf("echo $USER"), "nobody\n");
  ASSERT_TRUE(switchEffective(kRootIds));
}

TEST(Process, LeavesNoCoreAndIsLookedIntoByNobody) {
  EXPECT_EQ(inAProcessOfItsOwn([] {
              rlimit before{}, after{};
              ::prctl(PR_SET_DUMPABLE, 1);
              ::getrlimit(RLIMIT_CORE, &before);
              forbidDumps();
              ::getrlimit(RLIMIT_CORE, &after);
              return ::prctl(PR_GET_DUMPABLE) == 0 && after.rlim_cur == 0 && after.rlim_max == before.rlim_max;
            }),
            1);
}

TEST(Child, StopsAtItsTimeLimit) {
  const LogCapture logs;
  ChildPlan plan = ChildPlan::shell("sleep 60 & echo $!; trap '' TERM; sleep 60");
  plan.timeLimit = 1;
  const ChildResult result = runChild(plan);
  EXPECT_TRUE(result.timedOut && result.status == SIGKILL);
  // The whole group goes, if not at the same moment.
  const std::string other = "/proc/" + std::to_string(std::stoi("0" + result.output)) + "/stat";
  const auto runs = [&] { return exists(other) && times(contentOf(other), ") Z ") == 0; };
  for (int i = 0; i < 100 && runs(); ++i) nap(20);
  EXPECT_FALSE(runs());
  EXPECT_TRUE(holds(logs.errors(), "Time limit of 1 seconds is over: killing pid"));
  // Not read and not fed, it is watched all the same.
  plan = ChildPlan::program("/bin/sleep", {"60"});
  plan.output = ChildPlan::Stream::inherit;
  plan.timeLimit = 1;
  EXPECT_TRUE(runChild(plan).timedOut);
  // What ended by itself did not time out, even when something holds its output open.
  plan = ChildPlan::shell("sleep 20 & echo over; exit 2");
  plan.timeLimit = 1;
  const ChildResult held = runChild(plan);
  EXPECT_TRUE(!held.timedOut && held.status == 2 && held.output == "over\n");
  EXPECT_TRUE(holds(logs.errors(), "holds its output open"));
}

TEST(Child, KeepsToItsLimits) {
  const LogCapture logs;
  ChildPlan plan = ChildPlan::shell("yes | head -c 500000; exit 7");
  plan.outputLimit = 1000;
  const ChildResult result = runChild(plan);
  EXPECT_TRUE(result.output.size() == 1000 && result.status == 7);
  EXPECT_TRUE(holds(logs.errors(), "longer than 1000 bytes. Chopping the rest."));
  plan = ChildPlan::shell("pwd");
  plan.workingDirectory = "/usr";
  EXPECT_EQ(runChild(plan).output, "/usr\n");
  plan.workingDirectory = "/no/such";
  EXPECT_EQ(runChild(plan).status, 127);
}

TEST(Child, JoinsAPipeline) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ChildPlan from = ChildPlan::shell("echo through; exit 6");
  from.outputDescriptor = ends[1];
  ChildPlan to = ChildPlan::program("/usr/bin/tr", {"a-z", "A-Z"});
  to.inputDescriptor = ends[0];
  Child writer = Child::start(from);
  Child reader = Child::start(to);
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(reader.finish().output, "THROUGH\n");
  EXPECT_EQ(writer.finish().status, 6);
  { const Child dropped = Child::start(ChildPlan::program("/bin/sleep", {"60"})); }
  EXPECT_FALSE(hasChildren());
}

TEST(Child, FailsCleanly) {
  const LogCapture logs;
  errorLog("%s", "open from now on");
  const int before = openDescriptors();
  for (const char* plan :
       {"process.pipe:EMFILE", "process.pipe:EMFILE:1", "process.pipe:EMFILE:2", "process.fork:EAGAIN"}) {
    Text command = Text::copyOf("echo no");
    EXPECT_EQ(failing(plan, [&] { return execute(command, 16, 1, 0); }), -1) << plan;
    EXPECT_STREQ(command, "") << plan;
  }
  EXPECT_TRUE(holds(logs.errors(), "Too many open files"));
  EXPECT_TRUE(holds(logs.errors(), "Unable to start a process for echo no: Resource temporarily unavailable"));
  // A descriptor that cannot be put in place is told, and the child goes on.
  EXPECT_EQ(failing("process.dup:EMFILE", [] { return outputOf("cat; echo goes on"); }), "goes on\n");
  EXPECT_TRUE(holds(logs.errors(), "Dup Error on cat; echo goes on : Too many open files"));
  EXPECT_TRUE(holds(logs.errors(), "already has the maximum number of file descriptors open"));
  EXPECT_EQ(failing("process.dup:EIO", [&] { return outputOf("echo goes on"); }), "goes on\n");
  EXPECT_TRUE(holds(logs.errors(), "close must have caused the dup error: 5"));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_FALSE(hasChildren());
}

TEST(Wait, TellsWhatHappened) {
  const LogCapture logs;
  int status = 0;
  EXPECT_EQ(do_waitpid(999999, status, "nobody there"), -1);
  EXPECT_TRUE(holds(logs.errors(), "wait error on nobody there: No child processes"));
  const std::string said = printed(
      [&] {
        const pid_t pid = ::fork();
        if (pid == 0) ::_exit(::raise(SIGSTOP) + ::usleep(300000) + 8);
        Child waker = Child::start(ChildPlan::shell("sleep 0.3; kill -CONT " + std::to_string(pid)));
        EXPECT_EQ(do_waitpid(pid, status, "sleeper"), 8);
        EXPECT_EQ(waker.finish().status, 0);
        nap(-5);
      },
      1000);
  for (const char* what :
       {" stopped by signal 19 (sleeper)\n", " continued (sleeper)\n", "nap(-5 ms): nanosleep error: "}) {
    EXPECT_TRUE(holds(said, what));
  }
}

TEST(Detached, WorksOnItsOwn) {
  const Folder folder;
  struct Work {
    std::string path;
    Descriptor held;
  } work{folder.path("done"), Descriptor(sys::open(folder.path().c_str(), O_RDONLY))};
  setLocationTracker(work.held.get());
  ASSERT_TRUE(runDetached(
      [](void* argument) {
        const auto& mine = *static_cast<Work*>(argument);
        const bool isFree = ::fcntl(mine.held.get(), F_GETFD) < 0 && ::isatty(1) == 0 && errno == ENOTTY;
        const Descriptor reused(sys::open(mine.path.c_str(), O_WRONLY | O_CREAT, 0600));
        set_program_location("into no file of ours");
        const std::string_view said = ::getsid(0) == ::getpid() && isFree ? "own" : "shared";
        return sys::writeAll(reused.get(), said) == said.size() ? 0 : 1;
      },
      &work));
  setLocationTracker(-1);
  int status = 0;
  EXPECT_EQ(do_waitpid(-1, status, "detached"), 0);
  EXPECT_EQ(contentOf(work.path), "own");
}
