// Macvtap devices: creation and deletion over rtnetlink. Errors are traced here, at level 1.
#pragma once

#include <cstdint>

namespace netlink {

// Frames between devices on one lower device are passed on directly.
inline constexpr uint32_t macvlanModeBridge = 4;

// Creates the macvtap device `ifname` on the device `srcdev`, with the MAC address in the 6 bytes
// at `macaddress`. 0 on success, else -1. `ifindex`, if not null, receives the new device's index,
// 0 on failure.
int deviceAdd(const char* macaddress, const char* ifname, const char* srcdev, uint32_t macvlan_mode,
              int* ifindex);

// Deletes the device `ifname`; an error is only traced.
void deviceRemove(const char* ifname);

}  // namespace netlink
