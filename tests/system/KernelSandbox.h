// A kernel network of our own, where devices can be made without touching the machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Vm::fakes {

// For a program's main(), before it makes threads: moves the process to network and mount
// namespaces of its own, with /sys as that network has it and an empty /dev, where tap nodes appear
// only as makeTapNode() makes them. Both end with the process. Without the right to do so, returns
// what is missing; else an empty text.
std::string enterKernelSandbox();

// Runs "ip ARGUMENTS", which must succeed.
void ip(const std::string& arguments);

// Makes /dev/tapN for the macvtap device, as udevd does.
void makeTapNode(const std::string& device);

// What the kernel says of a device, over rtnetlink.
struct KernelDevice {
  uint32_t index = 0;
  std::string mac;
  std::string kind;
  uint32_t macvtapMode = 0;
  uint32_t lower = 0;  // its lower device's index
  bool up = false;
};
std::optional<KernelDevice> kernelDevice(const std::string& name);

}  // namespace Vm::fakes
