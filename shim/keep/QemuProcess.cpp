#include "shim/keep/QemuProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "shim/base/Failure.h"
#include "shim/decide/Arguments.h"

namespace shim {

namespace {

constexpr int cannotRun = 127;
constexpr int diedByNobody = 128;  // what shells add a signal's number to

[[noreturn]] void giveUp(const std::string& what) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the shim has one thread
  std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(errno));
  _exit(cannotRun);
}

void restoreSignals() {
  for (int signal = 1; signal < NSIG; ++signal) std::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Puts each at its place: first out of the way of all places, for one may stand at another's.
void arrangeDescriptors(const Inheritance& inheritance) {
  const int null = open("/dev/null", O_RDWR);
  std::vector<int> wanted{null,
                          inheritance.output,
                          inheritance.output,
                          inheritance.monitor,
                          inheritance.serial,
                          inheritance.lock};
  static_assert(monitorDescriptor == 3 && serialDescriptor == 4 && lockDescriptor == 5 &&
                firstImageDescriptor == 6);
  wanted.insert(wanted.end(), inheritance.images.begin(), inheritance.images.end());
  const auto places = static_cast<int>(wanted.size());
  for (int& number : wanted) number = fcntl(number, F_DUPFD, places);
  for (int place = 0; place < places; ++place)
    if (dup2(wanted[static_cast<size_t>(place)], place) < 0)
      giveUp("descriptors could not be handed over");
  if (close_range(static_cast<unsigned>(places), ~0U, 0) != 0)
    giveUp("descriptors could not be closed");
}

// When memory runs out the kernel ends whom it costs least to lose. The daemon, and with it the
// shim, may be spared by its service manager; a guest, which has the memory, may not.
void giveUpProtection() {
  const char* const path = "/proc/self/oom_score_adj";
  std::ifstream current(path);
  if (int score = 0; current >> score && score < 0) std::ofstream(path) << 0;
}

// A file system may let nobody use a file but who mounted it, though it is open.
void requireUsable(const Inheritance& inheritance) {
  for (size_t i = 0; i < inheritance.images.size(); ++i) {
    struct stat facts {};
    if (fstat(firstImageDescriptor + static_cast<int>(i), &facts) != 0)
      throw failureOf(
          "the disk image cannot be given to QEMU, which is run as a user of its own (if its file "
          "system is one of FUSE, it must be mounted with allow_other)");
  }
}

// The order of all steps is in docs/security.md.
void shutIn(const Box& box, const Inheritance& inheritance, pid_t shim) {
  endWith(shim);
  giveUpProtection();
  arrangeDescriptors(inheritance);
  enterBox(box);
  becomeUserOf(box);
  requireUsable(inheritance);
  endWith(shim);
  forbidCalls();
  restoreSignals();
}

[[noreturn]] void becomeQemu(const Box& box, const std::vector<std::string>& argv,
                             const Inheritance& inheritance, pid_t shim) {
  try {
    shutIn(box, inheritance, shim);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    _exit(cannotRun);
  }
  std::vector<char*> words;
  words.reserve(argv.size() + 1);
  for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  char* none[] = {nullptr};
  execve(box.root.program.c_str(), words.data(), none);
  giveUp("QEMU " + box.root.program + " cannot be run");
}

// Needs no descriptor itself. What the agent hands over has low numbers.
std::vector<int> descriptorsOneByOne() {
  constexpr int mostTried = 1024;
  std::vector<int> found;
  for (int number = STDERR_FILENO + 1; number < mostTried; ++number)
    if (fcntl(number, F_GETFD) >= 0) found.push_back(number);
  return found;
}

}  // namespace

pid_t startQemu(const Box& box, const GuestGroup& group, const std::vector<std::string>& argv,
                const Inheritance& inheritance) {
  const pid_t shim = getpid();
  const pid_t pid = group.fork();
  if (pid == 0) becomeQemu(box, argv, inheritance, shim);
  return pid;
}

std::vector<int> inheritedDescriptors() {
  std::vector<int> inherited;
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir("/proc/self/fd"), closedir);
  // None may be missed: the agent may be connected to the monitor's socket already.
  if (!open) return descriptorsOneByOne();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the shim has one thread
  while (const dirent* const entry = readdir(open.get())) {
    const int number = std::atoi(entry->d_name);  // NOLINT(cert-err34-c): "." and ".." become 0
    if (number > STDERR_FILENO && number != dirfd(open.get())) inherited.push_back(number);
  }
  return inherited;
}

void endAs(int waitStatus, const std::vector<int>& parting) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  prctl(PR_SET_DUMPABLE, 0);  // a core that goes to a pipe knows no limit
  const int signal = WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) : 0;
  if (signal != 0) restoreSignals();
  for (const int number : parting) close(number);
  if (signal == 0) _exit(WEXITSTATUS(waitStatus));
  kill(getpid(), signal);
  _exit(diedByNobody + signal);
}

}  // namespace shim
