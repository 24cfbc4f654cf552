#include "netlink/InterfaceFlags.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Trace.h"

namespace netlink {

namespace {

// Reads the flags, changes the one and writes them back, on `sock`.
int setUp(int sock, const char* ifname, bool up) {
  ifreq request{};
  if (std::strlen(ifname) > sizeof request.ifr_name - 1) {
    VM_TRACE(1) << "ifUp"
                << "FAIL: invalid interface name";
    return ENODEV;
  }
  std::strcpy(request.ifr_name, ifname);
  if (ioctl(sock, SIOCGIFFLAGS, &request) < 0) {
    const int error = errno;
    VM_TRACE(1) << "ifUp"
                << "FAIL: cannot ioctl to get if flags";
    return error;
  }
  const auto flags =
      static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
  if (flags == request.ifr_flags) return 0;
  request.ifr_flags = flags;
  if (ioctl(sock, SIOCSIFFLAGS, &request) < 0) {
    const int error = errno;
    VM_TRACE(1) << "ifUp"
                << "FAIL: cannot ioctl to set if flags";
    return error;
  }
  return 0;
}

}  // namespace

int ifUp(const char* ifname, AdminState state) {
  const bool up = state == AdminState::up;
  VM_TRACE(7) << "ifUp"
              << " ifname " << ifname << " up " << up;
  const int sock = socket(AF_PACKET, SOCK_DGRAM, 0);
  if (sock < 0) {
    const int error = errno;
    VM_TRACE(1) << "ifUp"
                << "FAIL: cannot open socket to ioctl for ifUp";
    return error;
  }
  const int error = setUp(sock, ifname, up);
  close(sock);
  return error;
}

}  // namespace netlink
