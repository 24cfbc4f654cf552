#include "shim/keep/Parent.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace shim {

namespace {

bool isPipe(int number) {
  struct stat found {};
  return fstat(number, &found) == 0 && S_ISFIFO(found.st_mode);
}

bool hasNoReader(int pipe) {
  pollfd polled{pipe, 0, 0};
  return poll(&polled, 1, 0) == 1 && (polled.revents & POLLERR) != 0;
}

}  // namespace

Parent::Parent(const std::vector<int>& inherited) : pid_(getppid()) {
  std::copy_if(inherited.begin(), inherited.end(), std::back_inserter(pipes_), isPipe);
}

// In this order: what lives now has lived since pid_ was seen.
bool Parent::lives() const {
  return std::none_of(pipes_.begin(), pipes_.end(), hasNoReader) && getppid() == pid_;
}

rt::Descriptor Parent::process() const {
  rt::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  return lives() ? std::move(process) : rt::Descriptor();
}

bool Parent::takesUsAlong() const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  return lives();
}

void Parent::leavesUs() { prctl(PR_SET_PDEATHSIG, 0); }

}  // namespace shim
