#include "shim/box/Box.h"

#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "shim/base/Failure.h"
#include "shim/box/CallFilter.h"
#include "shim/box/Rights.h"

namespace shim {

namespace {

constexpr mode_t ownFilesOnly = 077;

void require(bool done, const std::string& what) {
  if (!done) throw failureOf("QEMU could not be shut in: " + what);
}

struct Limit {
  __rlimit_resource resource;
  rlim_t most;
  const char* what;
};
constexpr Limit limits[] = {
    // Cards, viewers, images and what QEMU has for itself.
    {RLIMIT_NOFILE, 1024, "descriptors"},
    // Threads of the user's, which are QEMU's: a processor each, 64 that wait for disks, a few
    // more.
    {RLIMIT_NPROC, 512, "threads"},
    {RLIMIT_MEMLOCK, 64 * 1024, "locked memory"},
    {RLIMIT_MSGQUEUE, 0, "message queues"},
    {RLIMIT_NICE, 0, "priority"},
    {RLIMIT_RTPRIO, 0, "real-time priority"},
};

// A core has the guest's memory in it. With 0 the program that a machine may have for cores is run
// all the same; with one byte it is not. That is more than 0, so it may take a right.
void forbidCores() {
  const rlimit one{1, 1};
  const rlimit none{0, 0};
  require(setrlimit(RLIMIT_CORE, &one) == 0 || setrlimit(RLIMIT_CORE, &none) == 0, "core");
}

void limitResources() {
  for (const Limit& each : limits) {
    rlimit now{};
    require(getrlimit(each.resource, &now) == 0, each.what);
    const rlim_t most = std::min(each.most, now.rlim_max);
    const rlimit limited{most, most};
    require(setrlimit(each.resource, &limited) == 0, each.what);
  }
}

}  // namespace

void endWith(pid_t parent) {
  require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "end with its shim");
  // In this order: a parent that ended before would not be noticed.
  if (getppid() != parent) throw Failure("QEMU could not be shut in: its shim has ended");
}

void enterBox(const Box& box) {
  require(unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS) == 0, "namespaces");
  enterPrivateRoot(box.root);
  limitResources();
  forbidCores();
  umask(ownFilesOnly);
  (void)setsid();  // it leads none, being a child
}

void becomeUserOf(const Box& box) { becomeUser(box.user); }

void forbidCalls() {
  const auto filter = callFilter();
  const sock_fprog program{static_cast<unsigned short>(filter.size()),
                           const_cast<sock_filter*>(filter.data())};
  require(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0, "system calls");
}

}  // namespace shim
