#include "netlink/TapNode.h"

#include <fcntl.h>
#include <net/if.h>

#include <cstdio>

#include "runtime/base/Trace.h"

namespace netlink {

namespace {

constexpr int maxOpenAttempts = 101;

}  // namespace

int openTap(const char* ifname, void (*pause)()) {
  VM_TRACE(7) << "openTap"
              << " ifname " << ifname;
  const unsigned index = if_nametoindex(ifname);
  // It goes on with 0, a node that there is never.
  if (index == 0)
    VM_TRACE(1) << "openTap"
                << "FAIL: no such device";
  char path[30];
  std::snprintf(path, sizeof path, "/dev/tap%d", static_cast<int>(index));
  for (int attempt = 1;; ++attempt) {
    const int fd = open(path, O_RDWR);
    if (fd >= 0) {
      fcntl(fd, F_SETFD, FD_CLOEXEC);
      return fd;
    }
    if (attempt == maxOpenAttempts) break;
    pause();
  }
  VM_TRACE(1) << "openTap"
              << " FAIL: cannot open macvtap device " << path << " check if udevd is running ";
  return -1;
}

}  // namespace netlink
