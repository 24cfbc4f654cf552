#include "netlink/MacvtapSetup.h"

#include <net/if.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "netlink/InterfaceFlags.h"
#include "netlink/Macvtap.h"
#include "netlink/TapNode.h"
#include "runtime/base/Trace.h"

namespace netlink {

namespace {

constexpr int maxNames = 8192;

enum class NameSearch { found, allTaken, failed };

// Leaves in `name` the first free one, or the last that was tried.
NameSearch findFreeName(char (&name)[16]) {
  // 16 bits, so that the compiler sees that the name has room.
  for (int16_t i = 0; i < maxNames; ++i) {
    std::snprintf(name, sizeof name, "macvtap%d", i);
    if (if_nametoindex(name) != 0) continue;
    if (errno == ENODEV) return NameSearch::found;
    VM_TRACE(1) << "setupMacvtap"
                << " FAIL: " << std::strerror(errno);
    return NameSearch::failed;
  }
  return NameSearch::allTaken;
}

}  // namespace

MacvtapSetup setupMacvtap(const char* srcdev, const char* mac, void (*pause)()) {
  MacvtapSetup setup;
  const NameSearch search = findFreeName(setup.name);
  if (search == NameSearch::failed) return setup;
  if (search == NameSearch::found &&
      deviceAdd(mac, setup.name, srcdev, macvlanModeBridge, nullptr) != 0) {
    VM_TRACE(1) << "setupMacvtap"
                << " FAIL: deviceAdd failed for " << setup.name;
    return setup;
  }
  setup.leftover = true;
  if (ifUp(setup.name, AdminState::up) != 0) {
    VM_TRACE(1) << "setupMacvtap"
                << " FAIL: cannot 'up' interface " << setup.name
                << " -- another macvtap device may be 'up' and have the same MAC address ";
    return setup;
  }
  setup.fd = openTap(setup.name, pause);
  if (setup.fd < 0) {
    VM_TRACE(1) << "setupMacvtap"
                << " FAIL: cannot open tap device ";
    ifUp(setup.name, AdminState::down);
    return setup;
  }
  setup.leftover = false;
  return setup;
}

}  // namespace netlink
