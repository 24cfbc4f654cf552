// What programs ask of devices: network interfaces and terminals.
#include <net/if.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cstring>

#include "sim/kernel/Pty.h"
#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/SocketCalls.h"

namespace sim::sys {

namespace {

Result interfaceControl(unsigned long request, ifreq& asked) {
  Network& network = machine().network;
  const std::string name(asked.ifr_name, strnlen(asked.ifr_name, sizeof asked.ifr_name));
  const Link* const link = network.find(name);
  if (!link) return -ENODEV;
  if (request == SIOCGIFFLAGS) {
    asked.ifr_flags = static_cast<short>(link->flags);
    return 0;
  }
  if (request == SIOCGIFINDEX) {
    asked.ifr_ifindex = static_cast<int>(link->index);
    return 0;
  }
  constexpr unsigned settable = IFF_UP | IFF_PROMISC | IFF_ALLMULTI | IFF_DEBUG;
  const auto wanted = static_cast<unsigned>(static_cast<unsigned short>(asked.ifr_flags));
  unsigned flags = (link->flags & ~settable) | (wanted & settable);
  flags = (flags & IFF_UP) != 0 ? flags | IFF_RUNNING : flags & ~static_cast<unsigned>(IFF_RUNNING);
  return network.flagsAre(link->index, flags);
}

}  // namespace

Result deviceControl(int number, unsigned long request, void* argument) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  switch (request) {
    case SIOCGIFFLAGS:
    case SIOCSIFFLAGS:
    case SIOCGIFINDEX:
      return interfaceControl(request, *static_cast<ifreq*>(argument));
    case TIOCGWINSZ:
    case TCGETS:
    case TIOCSPTLCK:
    case TIOCGPTN:
      return -ENOTTY;
    default:
      machine().fail("unknown call", "ioctl", "request " + std::to_string(request));
      return -ENOTTY;
  }
}

}  // namespace sim::sys
