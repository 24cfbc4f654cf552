// The macvtap devices that the kernel has.
#pragma once

#include <vector>

#include "runtime/base/String.h"
#include "runtime/net/EthAddr.h"

namespace host {

struct Tap {
  rt::String name;
  rt::EthAddr mac;

  friend bool operator==(const Tap&, const Tap&) = default;
};

// One look at the devices of this network. Throws Exception when the kernel does not answer.
std::vector<Tap> taps();

}  // namespace host
