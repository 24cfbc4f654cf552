// Guests whose processor is emulated.
#pragma once

#include <cstdint>
#include <string_view>

namespace guest {

// How much code, translated from a guest's, QEMU keeps, in mebibytes; told nothing it would keep
// up to 1,024. `memory`: the guest's, in mebibytes.
uint32_t codeCacheOf(uint32_t memory);

// Whether a processor can run guests by itself: /dev/kvm may open where it cannot.
bool canRunGuests(std::string_view cpuinfo);

}  // namespace guest
