// The system calls that a QEMU is forbidden, whoever has taken it over.
#pragma once

#include <linux/filter.h>

#include <span>

namespace shim {

// A program of the kernel's, made when this is built: see MakeCallFilter.cpp. It is a short list of
// what QEMU never does, beside the one that QEMU makes for itself with -sandbox, which leaves much
// of it out. What is on it fails, as if the right were missing, and QEMU goes on.
std::span<const sock_filter> callFilter();

}  // namespace shim
