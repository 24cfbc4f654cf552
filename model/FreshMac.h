// An address for a card of which nobody has said one.
#pragma once

#include "model/ConfigIndex.h"

namespace model {

// One of QEMU's, 52:54:00:..., that no card of another VM has and none of `vm`. It is `number`, of
// which 24 bits count, or the next one that is free.
rt::EthAddr freshMac(const Vm::VmConfig& vm, const Holders& others, uint32_t number);

}  // namespace model
