// Processes and their signals.
#include <linux/openat2.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sim/kernel/AtExit.h"
#include "sim/kernel/calls/BoxCalls.h"
#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/FileCalls.h"
#include "sim/kernel/calls/ProcessCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

std::vector<std::string> textsOf(char* const* pointers) {
  std::vector<std::string> texts;
  for (; pointers && *pointers; ++pointers) texts.emplace_back(*pointers);
  return texts;
}

// Where execvp() looks.
std::vector<std::string> candidatesFor(const std::string& program) {
  if (program.find('/') != std::string::npos) return {program};
  const char* const path = std::getenv("PATH");
  std::vector<std::string> all;
  std::string rest = path ? path : "/bin:/usr/bin";
  while (!rest.empty()) {
    const size_t colon = std::min(rest.find(':'), rest.size());
    all.push_back(rest.substr(0, colon) + "/" + program);
    rest.erase(0, std::min(colon + 1, rest.size()));
  }
  return all;
}

Result execute(const std::string& path, char* const* arguments, char* const* environment) {
  return machine().processes.exec(path, textsOf(arguments), textsOf(environment));
}

Result setMask(int how, const sigset_t* set, sigset_t* before) {
  Signals& signals = sys::self().signals;
  if (before) *before = signals.mask;
  if (!set) return 0;
  for (int number = 1; number < NSIG; ++number) {
    const bool named = sigismember(set, number) == 1;
    if (how == SIG_SETMASK ? named : named && how == SIG_BLOCK) sigaddset(&signals.mask, number);
    if (how == SIG_SETMASK ? !named : named && how == SIG_UNBLOCK) sigdelset(&signals.mask, number);
  }
  sigdelset(&signals.mask, SIGKILL);
  sigdelset(&signals.mask, SIGSTOP);
  return 0;
}

Result openInRoot(int from, const char* path, const open_how& how) {
  return sys::open(from, path, static_cast<int>(how.flags), static_cast<unsigned>(how.mode),
                   (how.resolve & RESOLVE_IN_ROOT) != 0);
}

}  // namespace

extern "C" {

pid_t simFork() asm("fork");
pid_t simFork() {
  static constinit Name name("fork");
  if (!inWorld()) return name.library(&simFork)();
  return static_cast<pid_t>(name.call([&] { return machine().processes.fork(); }));
}

int simExec(const char* path, char* const* arguments) asm("execv");
int simExec(const char* path, char* const* arguments) {
  static constinit Name name("execv");
  if (!inWorld()) return name.library(&simExec)(path, arguments);
  return static_cast<int>(name.call([&] { return execute(path, arguments, environ); }, path));
}
int simExecWith(const char* path, char* const* arguments, char* const* environment) asm("execve");
int simExecWith(const char* path, char* const* arguments, char* const* environment) {
  static constinit Name name("execve");
  if (!inWorld()) return name.library(&simExecWith)(path, arguments, environment);
  return static_cast<int>(name.call([&] { return execute(path, arguments, environment); }, path));
}
int simExecFound(const char* program, char* const* arguments) asm("execvp");
int simExecFound(const char* program, char* const* arguments) {
  static constinit Name name("execvp");
  if (!inWorld()) return name.library(&simExecFound)(program, arguments);
  return static_cast<int>(name.call(
      [&] {
        Result result = -ENOENT;
        for (const std::string& path : candidatesFor(program)) {
          result = execute(path, arguments, environ);
          if (result != -ENOENT && result != -EACCES) break;
        }
        return result;
      },
      program));
}

[[noreturn]] void simExitAtOnce(int status) asm("_exit");
[[noreturn]] void simExitAtOnce(int status) {
  static constinit Name name("_exit");
  if (!inWorld()) name.library (&simExitAtOnce)(status);
  name.call([&]() -> Result { machine().processes.exit(status); }, status);
  std::abort();
}
[[noreturn]] void simExit(int status) asm("exit");
[[noreturn]] void simExit(int status) {
  static constinit Name name("exit");
  if (!inWorld()) name.library (&simExit)(status);
  runAtExit(sys::self());
  name.call([&]() -> Result { machine().processes.exit(status); }, status);
  std::abort();
}
[[noreturn]] void simAbort() asm("abort");
[[noreturn]] void simAbort() {
  static constinit Name name("abort");
  if (inWorld()) machine().fail("abort", sys::self().name, "a program of ours aborts");
  name.library (&simAbort)();
  __builtin_trap();
}

int simAtExit(void (*run)(void*), void* argument, void* object) asm("__cxa_atexit");
int simAtExit(void (*run)(void*), void* argument, void* object) {
  static constinit Name name("__cxa_atexit");
  // What is no process' own is destroyed with this program.
  if (!inWorld() || !ProductImage::has(argument))
    return name.library(&simAtExit)(run, argument, object);
  sys::self().atExit.push_back({run, argument});
  return 0;
}
int simAtFork(void (*prepare)(), void (*inParent)(), void (*inChild)()) asm("pthread_atfork");
int simAtFork(void (*prepare)(), void (*inParent)(), void (*inChild)()) {
  if (inWorld()) sys::self().atFork.push_back({prepare, inParent, inChild});
  return 0;
}

pid_t simWaitFor(pid_t pid, int* waitStatus, int options) asm("waitpid");
pid_t simWaitFor(pid_t pid, int* waitStatus, int options) {
  static constinit Name name("waitpid");
  if (!inWorld()) return name.library(&simWaitFor)(pid, waitStatus, options);
  return static_cast<pid_t>(
      name.call([&] { return sys::waitForChild(pid, waitStatus, options); }, pid, options));
}

int simKill(pid_t pid, int signal) asm("kill");
int simKill(pid_t pid, int signal) {
  static constinit Name name("kill");
  if (!inWorld()) return name.library(&simKill)(pid, signal);
  return static_cast<int>(name.call([&] { return sys::kill(pid, signal); }, pid, signal));
}
int simRaise(int signal) asm("raise");
int simRaise(int signal) {
  static constinit Name name("raise");
  if (!inWorld()) return name.library(&simRaise)(signal);
  return simKill(sys::self().pid, signal);
}

pid_t simOwnNumber() asm("getpid");
pid_t simOwnNumber() {
  static constinit Name name("getpid");
  return inWorld() ? sys::self().pid : name.library(&simOwnNumber)();
}
pid_t simParentNumber() asm("getppid");
pid_t simParentNumber() {
  static constinit Name name("getppid");
  if (!inWorld()) return name.library(&simParentNumber)();
  return static_cast<pid_t>(name.call([] { return sys::parentNumber(); }));
}
uid_t simOwnUser() asm("getuid");
uid_t simOwnUser() {
  static constinit Name name("getuid");
  return inWorld() ? 0 : name.library(&simOwnUser)();
}
uid_t simEffectiveUser() asm("geteuid");
uid_t simEffectiveUser() {
  static constinit Name name("geteuid");
  return inWorld() ? 0 : name.library(&simEffectiveUser)();
}

int simProcessControl(int option, ...) asm("prctl");
int simProcessControl(int option, ...) {
  static constinit Name name("prctl");
  va_list arguments;
  va_start(arguments, option);
  const unsigned long argument = va_arg(arguments, unsigned long);
  va_end(arguments);
  if (!inWorld()) return name.library(&simProcessControl)(option, argument, 0UL, 0UL, 0UL);
  // Who wants an int may have left anything above it.
  const auto given = static_cast<unsigned>(argument);
  // It may be an address.
  return static_cast<int>(name.call([&] { return sys::processControl(option, given); }, option));
}
pid_t simNewSession() asm("setsid");
pid_t simNewSession() {
  static constinit Name name("setsid");
  if (!inWorld()) return name.library(&simNewSession)();
  return static_cast<pid_t>(name.call([] { return sys::newSession(); }));
}
int simSetLimit(int resource, const rlimit* limit) asm("setrlimit");
int simSetLimit(int resource, const rlimit* limit) {
  static constinit Name name("setrlimit");
  if (!inWorld()) return name.library(&simSetLimit)(resource, limit);
  sys::self().limits[resource] = *limit;
  return static_cast<int>(name.call([]() -> Result { return 0; }, resource));
}

int simSignalAction(int signal, const struct sigaction* action,
                    struct sigaction* before) asm("sigaction");
int simSignalAction(int signal, const struct sigaction* action, struct sigaction* before) {
  static constinit Name name("sigaction");
  if (!inWorld()) return name.library(&simSignalAction)(signal, action, before);
  return static_cast<int>(name.call(
      [&]() -> Result {
        if (signal < 1 || signal >= NSIG || signal == SIGKILL || signal == SIGSTOP) return -EINVAL;
        struct sigaction& own = sys::self().signals.action(signal);
        if (before) *before = own;
        if (action) own = *action;
        return 0;
      },
      signal));
}
using Handler = void (*)(int);
Handler simSignal(int signal, Handler handler) asm("signal");
Handler simSignal(int signal, Handler handler) {
  static constinit Name name("signal");
  if (!inWorld()) return name.library(&simSignal)(signal, handler);
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  return simSignalAction(signal, &action, &before) == 0 ? before.sa_handler : SIG_ERR;
}
int simSignalMask(int how, const sigset_t* set, sigset_t* before) asm("sigprocmask");
int simSignalMask(int how, const sigset_t* set, sigset_t* before) {
  static constinit Name name("sigprocmask");
  if (!inWorld()) return name.library(&simSignalMask)(how, set, before);
  return static_cast<int>(name.call([&] { return setMask(how, set, before); }, how));
}

long simSystemCall(long number, ...) asm("syscall");
long simSystemCall(long number, ...) {
  static constinit Name name("syscall");
  va_list arguments;
  va_start(arguments, number);
  long given[6];
  for (long& each : given) each = va_arg(arguments, long);
  va_end(arguments);
  if (!inWorld())
    return name.library(&simSystemCall)(number, given[0], given[1], given[2], given[3], given[4],
                                        given[5]);
  const auto act = [&]() -> Result {
    switch (number) {
      case SYS_pidfd_open:
        return sys::openProcess(static_cast<pid_t>(given[0]), static_cast<unsigned>(given[1]));
      case SYS_pidfd_send_signal:
        return sys::signalProcess(static_cast<int>(given[0]), static_cast<int>(given[1]));
      case SYS_pivot_root:
        return sys::pivotRoot();
      case SYS_capget:
      case SYS_capset:
      case SYS_seccomp:
        return 0;  // nobody in a world does what is forbidden by them
      case SYS_bpf:
        return -EPERM;  // a kernel that takes no programs
      case SYS_openat2:
        return openInRoot(static_cast<int>(given[0]), reinterpret_cast<const char*>(given[1]),
                          *reinterpret_cast<const open_how*>(given[2]));
      default:
        machine().fail("unknown call", "syscall", "number " + std::to_string(number));
        return -ENOSYS;
    }
  };
  return name.call(act, number);
}

}  // extern "C"
