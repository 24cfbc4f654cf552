// The character device of a macvtap device.
#pragma once

namespace netlink {

// Opens /dev/tapN, N being the index of the device `ifname`, for reading and writing. The node is
// made by udevd, some time after the device: after each failed attempt but the last of 101, `pause`
// is called, which is to take 100 ms. The descriptor, close-on-exec, or -1 after a trace at level
// 1.
int openTap(const char* ifname, void (*pause)());

}  // namespace netlink
