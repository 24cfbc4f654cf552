// The macvtap devices that the kernel has.
#pragma once

#include <cstdint>
#include <vector>

#include "runtime/base/String.h"
#include "runtime/net/EthAddr.h"

namespace host {

struct Tap {
  rt::String name;
  rt::EthAddr mac;
  uint32_t lower = 0;  // the index of the device that it stands on
  bool isUp = false;   // switched on, whether its lower device has a carrier or not

  friend bool operator==(const Tap&, const Tap&) = default;
};

// One look at the devices of this network. Throws Exception when the kernel does not answer.
std::vector<Tap> taps();

}  // namespace host
