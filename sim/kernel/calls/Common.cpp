#include "sim/kernel/calls/Common.h"

#include <fcntl.h>

namespace sim::sys {

Sleep::End sleepOn(const std::vector<File*>& files, Time deadline, const char* call) {
  std::vector<WaitQueue*> queues;
  for (File* const each : files) each->queues(queues);
  return machine().scheduler.sleep(queues, deadline, call);
}

Result addDescriptor(FilePtr file, int openFlags) {
  return self().descriptors.add(std::move(file), (openFlags & O_CLOEXEC) != 0);
}

Result brokenPipe(Result result, bool silently) {
  if (result == -EPIPE && !silently) machine().processes.signal(self(), {SIGPIPE, self().pid, 0});
  return result;
}

}  // namespace sim::sys
