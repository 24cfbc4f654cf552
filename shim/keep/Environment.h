// What the shim is told by its environment (guest/Variables.h), and what it finds out about the
// machine.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "guest/GuestUsers.h"
#include "guest/ImageHeader.h"
#include "guest/VmFiles.h"
#include "shim/decide/Arguments.h"
#include "shim/decide/Time.h"

namespace shim {

struct Environment {
  std::string qemu = guest::realQemuPath;
  std::string runDir = guest::defaultRunDir;
  // What QEMU reads beside Debian's libraries and firmware.
  std::vector<std::string> qemuReads;
  guest::UserRange guestUsers;
  Policy policy;
  // The address that the guest's screen is served at, of IPv6 with or without its brackets. Empty:
  // at none, but on a socket of the group's.
  std::string screenAddress;
  // The path of the control group that QEMU is born in; empty: in the shim's own.
  std::string group;
  // What the disk image is, as the daemon says; nothing: it says nothing.
  std::optional<guest::ImageFormat> imageFormat;
  // What a guest gets to shut down by itself.
  Duration stopTimeout{15'000};
  // The descriptor of a socket that listens at the monitor's path since before
  // our start, so that the agent finds somebody at once; -1: there is none, as when we are started
  // by hand.
  int listener = -1;
};

// `get` is getenv. An empty value counts as none. Throws ArgumentError for one that is of no use.
Environment environmentFrom(const std::function<const char*(const char*)>& get);

// Whether /dev/kvm opens and /proc/cpuinfo tells of a CPU that can run guests. What cannot be read
// counts as a machine without KVM: QEMU says what is wrong better.
bool isKvmUsable();

// The device of /dev/kvm; nothing when there is none.
std::optional<dev_t> kvmDevice();

}  // namespace shim
