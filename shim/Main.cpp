// vmagent-shim: what the agent runs as QEMU. Takes QEMU's command line; see Environment.h for the
// rest. Ends as its QEMU ends; with status 1 and a sentence on standard error when there can be
// none.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "shim/Failure.h"
#include "shim/Keeper.h"
#include "shim/QemuProcess.h"

namespace {

using namespace shim;

// Longer than any guest takes to end, once its shim has begun to end it.
constexpr std::time_t endPatience = 30;
// flock() tells nobody that it could be taken.
constexpr long tryAgainAfter = 10'000'000;  // nanoseconds

enum class Wait { got, toldToEnd, timedOut };

// For the guest before to be gone.
Wait waitForVm(VmLock& lock) {
  std::timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const std::time_t last = time.tv_sec + endPatience;
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

// Returns only without a QEMU.
int keep(int argc, char** argv, const std::vector<int>& inherited) {
  const Environment environment = environmentFrom(std::getenv);
  const CommandLine line = readCommandLine({argv + 1, argv + argc});
  const VmDirectory directory(environment.runDir, line.name);
  VmLock lock(directory.file("lock"));
  if (!lock.takeKeeping())
    throw Failure("VM '" + line.name + "' runs already, kept by process " +
                  std::to_string(lock.keeper()) + ": end it first");
  // Now, before anything that can take long: the agent waits for it.
  AgentSocket socket(line.monitorPath);
  switch (waitForVm(lock)) {
    case Wait::got:
      break;
    case Wait::toldToEnd:
      return EXIT_SUCCESS;
    case Wait::timedOut:
      throw Failure("the QEMU before of VM '" + line.name + "' has not ended within " +
                    std::to_string(endPatience) + " s: 'fuser " + directory.file("lock") +
                    "' names it");
  }
  directory.lastErrorDel();
  try {
    Keeper keeper(environment, line, argv[0], directory, lock, socket);
    endAs(keeper.run(), inherited);
  } catch (const std::exception& error) {
    directory.lastErrorIs(error.what());
    throw;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<int> inherited = inheritedDescriptors();
  const sigset_t signals = keeperSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  (void)setsid();  // what is typed at a daemon's terminal is not meant for its guests
  try {
    return keep(argc, argv, inherited);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vmagent-shim: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
