// The shim in QEMU's place.
#pragma once

#include "runtime/base/String.h"

namespace host {

// The agent runs QEMU at a fixed path. In a mount namespace of the daemon's own, the shim stands
// there, and QEMU at the path that the shim looks for it; nobody else on the machine sees it.
inline constexpr const char* qemuPath = "/usr/bin/qemu-system-x86_64";
// A sibling of QEMU's directory: it looks for its firmware in "..".
inline constexpr const char* realQemuPath = "/usr/libexec/vmagent-qemu";

// The shim that is installed with this program; empty when there is none.
rt::String installedShim();

// To be called before there are threads. Does nothing where the shim stands there already: a
// service manager may have mounted it. Throws Exception, which says what is missing.
void mountShim(const rt::String& shim);

}  // namespace host
