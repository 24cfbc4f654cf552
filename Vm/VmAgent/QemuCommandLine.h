// What QEMU is told at its start.
#pragma once

#include <string>

#include "runtime/records/VmConfig.h"

namespace Vm {

// The path of the VM's monitor socket, which QEMU listens on.
rt::String monitorPath(const VmConfig::PtrConst& vmConfig);

// What the disk image at `path` is: 0 an ISO 9660 image, 1 none, -1 (after a trace) unreadable.
int diskIsCDROM(const std::string& path);

}  // namespace Vm
