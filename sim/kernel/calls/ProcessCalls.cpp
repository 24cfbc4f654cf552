#include "sim/kernel/calls/ProcessCalls.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "sim/kernel/SmallFiles.h"
#include "sim/kernel/calls/Common.h"

namespace sim::sys {

Result waitForChild(pid_t pid, int* waitStatus, int options) {
  Process& process = self();
  while (true) {
    bool anyChild = false;
    for (Process* const child : process.children) {
      if (pid > 0 && child->pid != pid) continue;
      anyChild = true;
      if (child->state != Process::State::zombie) continue;
      const pid_t number = child->pid;
      if (waitStatus) *waitStatus = child->waitStatus;
      machine().processes.reap(*child);
      return number;
    }
    if (!anyChild) return -ECHILD;
    if ((options & WNOHANG) != 0) return 0;
    if (machine().scheduler.sleep({&process.childEnded}, never, "waitpid") ==
        Sleep::End::interrupted)
      return -EINTR;
  }
}

Result kill(pid_t pid, int signal) {
  // Whole groups, and everybody, are nobody's business here.
  if (pid <= 0) {
    machine().fail("kill", self().name, "signals the group " + std::to_string(pid));
    return -EPERM;
  }
  const auto process = machine().processes.find(pid);
  if (!process) return -ESRCH;
  if (signal != 0) machine().processes.signal(*process, {signal, self().pid, 0});
  return 0;
}

Result parentNumber() { return self().parent ? self().parent->pid : 1; }

Result processControl(int option, unsigned long argument) {
  switch (option) {
    case PR_SET_PDEATHSIG:
      self().deathSignal = static_cast<int>(argument);
      return 0;
    case PR_CAPBSET_DROP: {
      constexpr unsigned long lastOne = 40;
      return argument > lastOne ? -EINVAL : 0;
    }
    case PR_SET_SECUREBITS:
    case PR_SET_DUMPABLE:
    case PR_SET_NAME:
    case PR_SET_NO_NEW_PRIVS:
      return 0;
    default:
      machine().fail("unknown call", "prctl", "option " + std::to_string(option));
      return -EINVAL;
  }
}

Result newSession() {
  if (self().group == self().pid) return -EPERM;
  self().group = self().session = self().pid;
  return self().pid;
}

Result openProcess(pid_t pid, unsigned /*flags*/) {
  if (pid <= 0) return -EINVAL;
  const auto process = machine().processes.find(pid);
  if (!process) return -ESRCH;
  return addDescriptor(std::make_shared<ProcessFile>(process), O_CLOEXEC);
}

Result signalProcess(int number, int signal) {
  const auto file = std::dynamic_pointer_cast<ProcessFile>(fileOf(number));
  if (!file) return -EBADF;
  // Its number may be another's by now.
  if (machine().processes.find(file->process()->pid) != file->process()) return -ESRCH;
  if (signal != 0) machine().processes.signal(*file->process(), {signal, self().pid, 0});
  return 0;
}

}  // namespace sim::sys
