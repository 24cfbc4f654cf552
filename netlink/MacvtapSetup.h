// A macvtap device from nothing to an open descriptor.
#pragma once

namespace netlink {

struct MacvtapSetup {
  int fd = -1;            // the open tap; -1: failed
  char name[16] = "";     // the device's
  bool leftover = false;  // failed after the device was there: the caller deletes `name`
};

// Takes the first free name "macvtapN", creates the device on `srcdev` with the 6 bytes at `mac` as
// its address, sets it up and opens its tap (`pause`: see openTap()). What fails is traced at level
// 1.
//
// When all of macvtap0 to macvtap8191 are taken, no device is created and macvtap8191 is used.
MacvtapSetup setupMacvtap(const char* srcdev, const char* mac, void (*pause)());

}  // namespace netlink
