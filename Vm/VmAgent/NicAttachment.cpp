// Cards follow the interfaces they are bridged to.
#include <unistd.h>

#include "Vm/VmAgent/VmConfigSm.h"
#include "netlink/Macvtap.h"
#include "netlink/MacvtapSetup.h"
#include "runtime/base/Check.h"
#include "runtime/base/Trace.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm {

namespace {

constexpr useconds_t tapPauseMicroseconds = 100'000;

// The rest of the process goes on while we wait for a tap node.
void pauseUnlocked() {
  const rt::UnlockAnchor unlocked(rt::activityLock());
  usleep(tapPauseMicroseconds);
}

rt::String fdNameOf(const Vnic& vnic) { return "fd-" + vnic.backendId(); }

// Closes a descriptor that did not find an owner.
class DescriptorGuard {
 public:
  explicit DescriptorGuard(int fd) : fd_(fd) {}
  DescriptorGuard(const DescriptorGuard&) = delete;
  ~DescriptorGuard() {
    if (fd_ >= 0) close(fd_);
  }
  uint32_t get() const { return static_cast<uint32_t>(fd_); }
  uint32_t release() { return static_cast<uint32_t>(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

}  // namespace

void VmConfigSm::doDeviceConnected(const rt::String& intfName) {
  VM_TRACE(7) << "void Vm::VmConfigSm::doDeviceConnected(const String&)"
              << " intfName: " << intfName << " for " << vmConfig()->name();
  for (const auto& [nicId, vnic] : vnic_)
    if (vnic->backendDev() == intfName && vnic->status() == Vnic::linkDown)
      setupNetworkDevice(vnic);
}

void VmConfigSm::doDeviceDisconnected(const rt::String& intfName) {
  VM_TRACE(7) << "void Vm::VmConfigSm::doDeviceDisconnected(const String&)"
              << " intfName: " << intfName << " for " << vmConfig()->name();
  for (const auto& [nicId, vnic] : vnic_)
    if (vnic->backendDev() == intfName &&
        (vnic->status() == Vnic::linkGoingUp || vnic->status() == Vnic::linkUp))
      destroyNetworkDevice(vnic);
}

void VmConfigSm::setupNetworkDevice(const Vnic::Ptr& vnic) {
  VM_TRACE(7) << "void Vm::VmConfigSm::setupNetworkDevice(const Vnic::Ptr&)"
              << " for " << vmConfig()->name() << " vnic: " << vnic->nicId()
              << " status: " << vnic->status();
  rt::check(static_cast<int>(vnic->macvtapFd()) == -1, "( int )vnic->macvtapFd() == -1");
  vnic->statusIs(Vnic::linkDown);
  const auto intf = allIntfStatusDir()->intfStatus(rt::IntfId(vnic->backendDev()));
  if (!intf || intf->deviceName().empty()) {
    VM_TRACE(1) << "setupNetworkDevice"
                << " FAIL: backend device: " << vnic->backendDev() << " does not exist for "
                << vmConfig()->name();
    return;
  }
  const auto& mac = vnic->macAddr().bytes();
  const auto setup = netlink::setupMacvtap(
      intf->deviceName().charPtr(), reinterpret_cast<const char*>(mac.data()), pauseUnlocked);
  if (setup.fd < 0) {
    if (setup.leftover) netlink::deviceRemove(setup.name);
    VM_TRACE(1) << "setupNetworkDevice"
                << " FAIL: cannot setup macvtap for " << vmConfig()->name();
    return;
  }
  DescriptorGuard fd(setup.fd);
  vnic->statusIs(Vnic::linkGoingUp);
  const auto args = rt::make<MonitorCommandArgs>();
  args->argIs({.argName = "fd", .u32Val = fd.get(), .strVal = {}});
  args->argIs({.argName = "fdname", .u32Val = 0, .strVal = fdNameOf(*vnic)});
  args->argIs({.argName = "nicId", .u32Val = 0, .strVal = vnic->nicId()});
  args->argIs({.argName = "backendId", .u32Val = 0, .strVal = vnic->backendId()});
  const uint32_t cmdId = sendMonitorCommand(MonitorCommand::backendAdd, args);
  pendingVnicIs(cmdId, vnic);
  vnic->macvtapDevIs(setup.name);
  vnic->macvtapFdIs(fd.release());
  populateStaticMacAddress(vnic->macAddr().text(), vnic->backendDev());
}

void VmConfigSm::destroyNetworkDevice(const Vnic::Ptr& vnic) {
  const rt::String fdname = fdNameOf(*vnic);
  if (vnic->status() == Vnic::linkGoingUp) {
    // The answer to the attach is outstanding; it detaches the card when it comes.
    vnic->linkDownPendingIs(true);
    return;
  }
  vnic->linkDownPendingIs(false);
  VM_TRACE(7) << "void Vm::VmConfigSm::destroyNetworkDevice(const Vnic::Ptr&)"
              << " for " << vmConfig()->name() << " vnic: " << vnic->nicId()
              << " status: " << vnic->status();
  rt::check(static_cast<int>(vnic->macvtapFd()) != -1, "( int )vnic->macvtapFd() != -1");
  vnic->statusIs(Vnic::linkGoingDown);
  unpopulateStaticMacAddress(vnic->macAddr().text(), vnic->backendDev());
  const auto args = rt::make<MonitorCommandArgs>();
  args->argIs({.argName = "backendId", .u32Val = 0, .strVal = vnic->backendId()});
  args->argIs({.argName = "fdname", .u32Val = 0, .strVal = fdname});
  const uint32_t cmdId = sendMonitorCommand(MonitorCommand::backendDel, args);
  pendingVnicIs(cmdId, vnic);
  close(static_cast<int>(vnic->macvtapFd()));
  vnic->macvtapFdIs(Vnic::noFd);
}

}  // namespace Vm
