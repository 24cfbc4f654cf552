// What a VM's configuration has to be before it is handed to the agent.
//
// The daemon and the command line ask here, so both refuse the same. The agent itself takes what it
// is given: a blank in a path becomes another argument of QEMU, a VLAN number out of range throws.
//
// Nothing here reads anything but its arguments; DiskImage.h looks at the image file.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "model/ConfigIndex.h"
#include "runtime/base/Problem.h"

namespace model {

struct MachineLimits {
  uint32_t memory = 0;  // mebibytes
};
// Of the machine this runs on.
MachineLimits machineLimits();

// Everything that is wrong with `vm`, each field's path as in its document ("vncPort",
// "vnicConfig.nic00.macAddr"); empty when it may be handed over. Who holds an address or a port
// keeps it: `vm` is the newcomer, what the others know of it itself is left out. O(c log n) for a
// VM of c cards among n.
std::vector<rt::Problem> problemsOf(const Vm::VmConfig& vm, const Holders& others,
                                    const MachineLimits& limits);
// The same for a single check: O(n log n), for it makes an index. To check many, make one and keep
// it up to date.
std::vector<rt::Problem> problemsOf(const Vm::VmConfig& vm, const Vm::Config& others,
                                    const MachineLimits& limits);

// One field each: what would be right, when `value` is not.
using Right = std::optional<rt::String>;
Right nameRight(std::string_view value);
Right diskImageRight(std::string_view value);
Right memoryRight(uint32_t value, const MachineLimits& limits);
Right vncPortRight(uint32_t value);
Right macAddrRight(const rt::EthAddr& value);
Right modelRight(std::string_view value);
Right intfNameRight(std::string_view value);

// Gives a fresh VM's record what its fields have when a document leaves them out: of memory, which
// every guest needs, the defaultMemory.
void vmDefaults(rt::Entity& vm);

constexpr uint32_t defaultMemory = 256;  // mebibytes
// What a card is of which nobody says it: every system of today has a driver for it.
constexpr std::string_view defaultModel = "virtio-net-pci";
constexpr size_t longestName = 64;
constexpr size_t longestIntfName = 15;  // what the kernel takes for a device
constexpr uint32_t firstVncPort = 5900;
constexpr uint32_t lastVncPort = 5910;

// The network cards of QEMU's "pc" machine.
std::span<const std::string_view> nicModels();

}  // namespace model
