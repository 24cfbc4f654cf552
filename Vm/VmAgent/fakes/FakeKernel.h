// The kernel's network devices, as netlink/ sees them, without any of them being real.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Vm/VmAgent/fakes/EffectLog.h"

namespace Vm::fakes {

// What can be made to fail, as netlink/ calls it.
enum class KernelCall {
  nameToIndex,    // if_nametoindex
  packetSocket,   // socket(AF_PACKET)
  getFlags,       // ioctl SIOCGIFFLAGS
  setFlags,       // ioctl SIOCSIFFLAGS
  openTap,        // open of /dev/tapN
  socketAlloc,    // nl_socket_alloc
  socketConnect,  // nl_connect
  macvlanAlloc,   // rtnl_link_macvlan_alloc
  buildRequest,   // rtnl_link_build_add_request
  sendRequest,    // nl_send_sync
  linkAlloc,      // rtnl_link_alloc
  linkDelete,     // rtnl_link_delete
  buildAddress,   // nl_addr_build
  startNest,      // nla_nest_start
  putAttribute,   // nla_put, nla_put_string
};

// Stands behind these calls, and close, of a program that is linked with VmFakeSystem, for as long
// as it lives; there is one at a time. What the agent does to devices is written to the log:
// "link add macvtap0 on Vlan100 52:54:00:12:34:56", "up macvtap0", "down macvtap0",
// "open /dev/tap501", "close /dev/tap501", "link del macvtap0" (also when there is no such device).
//
// Devices that the agent makes get the indexes 501, 502, … Requests and links are libnl's own
// objects, and only what they really say is done. Opened taps are real descriptors.
class FakeKernel {
 public:
  struct Device {
    uint32_t index = 0;
    int flags = 0;  // IFF_UP and others
    std::string mac;
    std::string kind;        // "macvtap"; empty for what the agent did not make
    uint32_t mode = 0;       // of a macvtap
    uint32_t lower = 0;      // the index of the device it stands on
    int requestedFlags = 0;  // of the message that made it
    bool up() const;
  };

  explicit FakeKernel(EffectLog& log);
  FakeKernel(const FakeKernel&) = delete;
  ~FakeKernel();

  // A device that the agent did not make; it is up. The name may be there already.
  void deviceIs(const std::string& name, uint32_t index);
  // The device goes, with all that stands on it.
  void deviceDel(const std::string& name);
  // Null when there is none.
  const Device* device(const std::string& name) const;
  // Names, in their order.
  std::vector<std::string> macvtaps() const;

  // After how many failed opens a new device's tap node is there; `never`: it is not made.
  static constexpr int never = -1;
  int nodeAfter = 0;
  // The same for one index, whether it has a device or not.
  void nodeIs(uint32_t index, int afterFailures = 0);

  // The call fails once, with errno `error` (libnl's: with that error code), after it worked
  // `successes` times more.
  void fail(KernelCall call, int error, int successes = 0);
  // How often it was called.
  int calls(KernelCall call) const;

  // The descriptor that the agent opened last for the device's tap, or -1.
  int tapOf(const std::string& deviceName) const;
  // The address family that an address was built for last.
  int addressFamily = -1;
  // Taps that the agent opened and did not close.
  size_t openTaps() const { return openTaps_.size(); }
  // How often a descriptor was closed that was not open.
  int badCloses() const { return badCloses_; }

  static FakeKernel* current();
  // For whoever stands behind socket(): one of AF_PACKET, SOCK_DGRAM that hears nothing.
  int packetSocket();

 private:
  friend struct KernelCalls;

  struct Failure {
    int error = 0;
    int successes = 0;
  };
  // The error to give, or 0.
  int failureOf(KernelCall call);

  EffectLog& log_;
  std::map<std::string, Device> devices_;
  uint32_t nextIndex_ = 501;
  std::map<uint32_t, int> nodes_;     // by index: failures still to come
  std::map<int, uint32_t> openTaps_;  // by descriptor: the index
  std::map<KernelCall, Failure> failures_;
  std::map<KernelCall, int> calls_;
  int badCloses_ = 0;
};

}  // namespace Vm::fakes
