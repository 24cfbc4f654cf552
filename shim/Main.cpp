// vmagent-shim: what the agent runs as QEMU. Takes QEMU's command line; see guest/Variables.h for
// the rest. Ends as its QEMU ends; with status 1 and a sentence on standard error when there can be
// none.
#include <linux/capability.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include "shim/base/Failure.h"
#include "shim/box/Rights.h"
#include "shim/keep/Keeper.h"
#include "shim/keep/QemuProcess.h"
#include "shim/keep/StandIn.h"

namespace {

using namespace shim;

// Longer than any guest takes to end that does not shut itself down.
constexpr std::time_t endPatience = 30;
// So long it is nothing to speak of.
constexpr std::time_t quietPatience = 5;
// For a shim that was about to end, or a daemon that was, to do so.
constexpr Duration takeOverPatience{3'000};
// flock() tells nobody that it could be taken.
constexpr long tryAgainAfter = 10'000'000;  // nanoseconds

// What a shim needs to begin with; docs/operating.md says what for.
constexpr std::initializer_list<int> rightsOfAStart = {
    CAP_CHOWN,   CAP_DAC_OVERRIDE, CAP_FSETID,    CAP_KILL,       CAP_MKNOD,       CAP_SETGID,
    CAP_SETPCAP, CAP_SETUID,       CAP_SYS_ADMIN, CAP_SYS_CHROOT, CAP_SYS_RESOURCE};

enum class Wait { got, toldToEnd, timedOut };

// For the guest before to be gone.
Wait waitForVm(VmLock& lock, std::time_t patience) {
  std::timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const std::time_t last = time.tv_sec + patience;
  const sigset_t signals = keeperSignals();
  while (time.tv_sec <= last) {
    if (lock.takeVm()) return Wait::got;
    const std::timespec pause{0, tryAgainAfter};
    const int signal = sigtimedwait(&signals, nullptr, &pause);
    if (signal > 0 && signal != SIGCHLD) return Wait::toldToEnd;
    clock_gettime(CLOCK_MONOTONIC, &time);
  }
  return Wait::timedOut;
}

// The same, and tells of a wait that is long.
Wait waitForVm(VmLock& lock, std::time_t patience, const VmDirectory& directory) {
  const Wait first = waitForVm(lock, quietPatience);
  if (first != Wait::timedOut) return first;
  directory.problemIs("waits for the QEMU before, which has not ended: 'fuser " +
                      directory.file(guest::lockFile) + "' names it");
  const Wait second = waitForVm(lock, patience - quietPatience);
  directory.problemIs("");
  return second;
}

// A lock file that was removed while its guest ran, and made anew, protects it no more. Whoever
// answers at the shim's socket keeps it all the same. (One that ends its guest still has the VM's
// half.)
bool isKeptWithoutLock(VmLock& lock, const std::string& socket) {
  return lock.takeVm() && connectionTo(socket);
}

// Why the guest stays another's; `keeper` is 0 when nobody has its lock.
Failure runsAlready(const std::string& vm, pid_t keeper, const std::string& refusal,
                    const VmDirectory& directory) {
  const std::string pid = std::to_string(keeper);
  if (keeper != 0)
    return Failure("VM '" + vm + "' runs already, kept by process " + pid + " (" + refusal +
                   "): end that process first, with 'kill " + pid + "'");
  return Failure("VM '" + vm + "' runs already (" + refusal + "), though nobody has its lock " +
                 directory.file(guest::lockFile) + ": end the process first that 'fuser " +
                 directory.file(guest::shimSocket) + "' names");
}

enum class Keeping { ours, toldToEnd };

// Returns with the keeper's half of the lock, or told to end, or not at all: when another shim
// keeps the guest for us, until its end. Throws Failure when the guest stays another's.
Keeping takeKeeping(const CommandLine& line, const VmDirectory& directory, VmLock& lock,
                    rt::Descriptor& listener, const std::vector<int>& inherited,
                    const Parent& parent) {
  const sigset_t signals = keeperSignals();
  const std::string socket = directory.file(guest::shimSocket);
  const Time last = now() + takeOverPatience;
  while (!lock.takeKeeping() || isKeptWithoutLock(lock, socket)) {
    const pid_t keeper = lock.keeper();
    const std::string refusal = standIn(directory, line, parent, listener, inherited);
    if (now() > last) throw runsAlready(line.name, keeper, refusal, directory);
    const std::timespec pause{0, tryAgainAfter};
    const int signal = sigtimedwait(&signals, nullptr, &pause);
    if (signal > 0 && signal != SIGCHLD) return Keeping::toldToEnd;
  }
  return Keeping::ours;
}

// Returns only without a QEMU.
int keepGuest(const Environment& environment, const CommandLine& line, const std::string& argv0,
              const VmDirectory& directory, rt::Descriptor& listener,
              const std::vector<int>& inherited) {
  const Parent parent(inherited);
  VmLock lock(directory.place(guest::lockFile));
  if (takeKeeping(line, directory, lock, listener, inherited, parent) == Keeping::toldToEnd)
    return EXIT_SUCCESS;
  auto socket = monitorSocket(line.monitorPath, copyOf(listener));
  // The guest before may be shutting itself down.
  const std::time_t patience =
      endPatience + std::chrono::ceil<std::chrono::seconds>(environment.stopTimeout).count();
  switch (waitForVm(lock, patience, directory)) {
    case Wait::got:
      break;
    case Wait::toldToEnd:
      return EXIT_SUCCESS;
    case Wait::timedOut:
      throw Failure("the QEMU before of VM '" + line.name + "' has not ended within " +
                    std::to_string(patience) + " s: 'fuser " + directory.file(guest::lockFile) +
                    "' names it");
  }
  directory.lastErrorDel();
  Keeper keeper(environment, line, argv0, directory, lock, std::move(socket), parent);
  listener.reset();
  endAs(keeper.run(), inherited);
}

// Returns only without a QEMU.
int keep(int argc, char** argv, std::vector<int>& inherited, rt::Descriptor& listener) {
  const Environment environment = environmentFrom(std::getenv);
  listener = takeListener(environment.listener, inherited);
  const CommandLine line = readCommandLine({argv + 1, argv + argc});
  keepOnlyRights(rightsOfAStart);
  const VmDirectory directory(environment.runDir, line.name);
  try {
    return keepGuest(environment, line, argv[0], directory, listener, inherited);
  } catch (const std::exception& error) {
    directory.lastErrorIs(error.what());
    throw;
  }
}

// On standard error, which is the daemon's: nobody may be reading it, and a shim that waited for
// one would never end. What has any room takes so little without waiting.
void say(const std::string& error) {
  const std::string line = ("vmagent-shim: " + error).substr(0, PIPE_BUF - 1) + "\n";
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  if (poll(&room, 1, 0) == 1) (void)!write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> inherited = inheritedDescriptors();
  const sigset_t signals = keeperSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  (void)setsid();  // what is typed at a daemon's terminal is not meant for its guests
  // Where the agent waits already. Open until there is a keeper, or until our end, of which it must
  // learn first: one that loses its connection looks for us for ten seconds, and keeps all other
  // guests waiting.
  rt::Descriptor listener;
  int status = EXIT_FAILURE;
  try {
    status = keep(argc, argv, inherited, listener);
  } catch (const std::exception& error) {
    say(error.what());
  }
  endAs(W_EXITCODE(status, 0), inherited);
}
