// vmagent-shim: what the agent runs as QEMU. Takes QEMU's command line; see Environment.h for the
// rest. Ends as its QEMU ends; with status 1 and a sentence on standard error when there can be
// none.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include "shim/Failure.h"
#include "shim/Keeper.h"
#include "shim/QemuProcess.h"
#include "shim/StandIn.h"

namespace {

using namespace shim;

// Longer than any guest takes to end that does not shut itself down.
constexpr std::time_t endPatience = 30;
// For a shim that was about to end, or a daemon that was, to do so.
constexpr Duration takeOverPatience{3'000};
// flock() tells nobody that it could be taken.
constexpr long tryAgainAfter = 10'000'000;  // nanoseconds

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

enum class Keeping { ours, toldToEnd };

// Returns with the keeper's half of the lock, or told to end, or not at all: when another shim
// keeps the guest for us, until its end. Throws Failure when the guest stays another's.
Keeping takeKeeping(const CommandLine& line, const VmDirectory& directory, VmLock& lock,
                    const std::vector<int>& inherited, const Parent& parent) {
  const sigset_t signals = keeperSignals();
  const Time last = now() + takeOverPatience;
  while (!lock.takeKeeping()) {
    const pid_t keeper = lock.keeper();
    const std::string refusal =
        standIn(directory.file("shim.sock"), line.arguments, parent, inherited);
    if (now() > last)
      throw Failure("VM '" + line.name + "' runs already, kept by process " +
                    std::to_string(keeper) + " (" + refusal + "): end it first");
    const std::timespec pause{0, tryAgainAfter};
    const int signal = sigtimedwait(&signals, nullptr, &pause);
    if (signal > 0 && signal != SIGCHLD) return Keeping::toldToEnd;
  }
  return Keeping::ours;
}

// Returns only without a QEMU.
int keepGuest(const Environment& environment, const CommandLine& line, const std::string& argv0,
              const VmDirectory& directory, const std::vector<int>& inherited) {
  const Parent parent(inherited);
  VmLock lock(directory.file("lock"));
  if (takeKeeping(line, directory, lock, inherited, parent) == Keeping::toldToEnd)
    return EXIT_SUCCESS;
  // Now, before anything that can take long: the agent waits for it.
  auto socket = std::make_unique<ListeningSocket>(line.monitorPath, "monitor");
  // The guest before may be shutting itself down.
  const std::time_t patience =
      endPatience + std::chrono::ceil<std::chrono::seconds>(environment.stopTimeout).count();
  switch (waitForVm(lock, patience)) {
    case Wait::got:
      break;
    case Wait::toldToEnd:
      return EXIT_SUCCESS;
    case Wait::timedOut:
      throw Failure("the QEMU before of VM '" + line.name + "' has not ended within " +
                    std::to_string(patience) + " s: 'fuser " + directory.file("lock") +
                    "' names it");
  }
  directory.lastErrorDel();
  Keeper keeper(environment, line, argv0, directory, lock, std::move(socket), parent);
  endAs(keeper.run(), inherited);
}

// Returns only without a QEMU.
int keep(int argc, char** argv, const std::vector<int>& inherited) {
  const Environment environment = environmentFrom(std::getenv);
  const CommandLine line = readCommandLine({argv + 1, argv + argc});
  const VmDirectory directory(environment.runDir, line.name);
  try {
    return keepGuest(environment, line, argv[0], directory, inherited);
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
