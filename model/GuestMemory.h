// What memory a guest takes, and whether there is any for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "runtime/records/VmConfig.h"

namespace model {

// What runs a guest's code.
enum class Processor : uint8_t { real, emulated };

// Mebibytes that a guest and its QEMU take at most: its own memory; what the kernel keeps of that;
// QEMU's own, with a thread for its processor, a screen, the code that it has translated, and what
// of its disk is on the way.
uint32_t memoryNeed(const Vm::VmConfig& vm, Processor processor);

// The machine's memory as far as guests are concerned, in mebibytes.
struct Room {
  uint64_t cap = 0;                   // all guests together may take so much
  uint64_t given = 0;                 // of that may be taken by those that there are
  uint64_t touched = 0;               // and is
  uint64_t reserve = 0;               // is to stay available to the machine
  std::optional<uint64_t> available;  // is now; nothing: that is not known
};
// Why a guest that may take so many mebibytes is not to be started; nothing: it may.
std::optional<rt::String> refusalOf(uint64_t need, const Room& room);

// What guests may take, and what stays the machine's, of one that has so many mebibytes.
uint32_t usualCap(uint32_t memory);
uint32_t usualReserve(uint32_t memory);

// Mebibytes, going by /proc/meminfo; nothing when it does not say.
std::optional<uint64_t> availableIn(std::string_view meminfo);
// The mebibytes that a control group has, of its file memory.current.
uint64_t mebibytesIn(std::string_view bytes);

// "24,000".
rt::String grouped(uint64_t number);

}  // namespace model
