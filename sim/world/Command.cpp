#include "sim/world/Command.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/kernel/InodeFile.h"
#include "sim/world/Installation.h"

namespace sim {

int CommandEnd::status() const {
  return inTime && WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

CommandEnd runCommand(Machine& machine, const char* path, const std::vector<std::string>& words,
                      Duration time) {
  CommandEnd end;
  end.began = machine.now();
  const auto written = std::make_shared<Inode>(S_IFREG | 0600U, machine.files.root()->device);
  Process& process = machine.processes.spawn(path, words, usualEnvironment());
  const auto output = std::make_shared<InodeFile>(written, "/output");
  output->flags = O_WRONLY | O_APPEND;
  for (const int number : {STDOUT_FILENO, STDERR_FILENO})
    process.descriptors.set(number, output, false);
  const auto alive = machine.processes.sharedOf(process);
  const auto hasEnded = [&] { return alive->state == Process::State::zombie; };
  end.inTime = machine.scheduler.runUntil(hasEnded, machine.now() + time);
  end.waitStatus = alive->waitStatus;
  end.output = written->bytes;
  if (!end.inTime) machine.processes.signal(process, {SIGKILL, 0, 0});
  return end;
}

}  // namespace sim
