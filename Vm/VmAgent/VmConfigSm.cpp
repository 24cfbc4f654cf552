// Lifecycle of one VM, and its tables of cards.
#include "Vm/VmAgent/VmConfigSm.h"

#include <unistd.h>

#include "Vm/VmAgent/QemuCommandLine.h"
#include "Vm/VmAgent/VmSm.h"
#include "netlink/Macvtap.h"
#include "runtime/base/Trace.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm {

namespace {

constexpr uint32_t notHeardLimit = 9;

}  // namespace

VmConfigSm::VmConfigSm(VmConfig::PtrConst vmConfig, VmStatus::Ptr vmStatus,
                       Bridging::Input::Config::Ptr bridgingInputConfig,
                       Interface::AllIntfStatusDir::PtrConst allIntfStatusDir,
                       const VmSm::Ptr& vmSm, rt::Clock::Ptr clock)
    : vmStatus_(std::move(vmStatus)),
      bridgingInputConfig_(std::move(bridgingInputConfig)),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      vmSm_(vmSm.get()),
      vmConfig_(*this, std::move(vmConfig)),
      clock_(*this, std::move(clock)),
      qemuChildProcess_(*this),
      monitorOutput_(*this),
      monitorStatus_(*this) {
  handleInitialized();
}

VmConfigSm::~VmConfigSm() {
  vnicDelAll();
  monSmDel();
}

VmSm::Ptr VmConfigSm::vmSm() const { return VmSm::Ptr(vmSm_); }

void VmConfigSm::handleInitialized() {
  VM_TRACE(8) << "void Vm::VmConfigSm::handleInitialized()"
              << " initialized ? " << initialized();
  if (initialized()) return;
  initializedIs(true);
  handleEnabled();
}

void VmConfigSm::handleEnabled() {
  VM_TRACE(8) << "void Vm::VmConfigSm::handleEnabled()"
              << " for " << vmConfig()->name();
  doTryEnableDisable();
}

void VmConfigSm::handleDiskImage() {
  VM_TRACE(8) << "void Vm::VmConfigSm::handleDiskImage()"
              << " for " << vmConfig()->name();
  doTryEnableDisable();
}

void VmConfigSm::doTryEnableDisable() {
  const rt::String& name = vmConfig()->name();
  VM_TRACE(8) << "void Vm::VmConfigSm::doTryEnableDisable()"
              << " for " << name << " enabled (config) ? " << vmConfig()->enabled()
              << " enabled (status) ? " << vmStatus()->enabled();
  if (vmConfig()->enabled() == vmStatus()->enabled()) return;
  vmStatus()->cmdStatusStrIs({});
  if (vmConfig()->enabled()) {
    VM_TRACE(8) << "switching " << name << " to enabled";
    doTryEnable();
  } else {
    VM_TRACE(8) << "switching " << name << " to disabled";
    doTryDisable();
  }
}

void VmConfigSm::doTryEnable() {
  const rt::String path = monitorPath(vmConfig());
  VM_TRACE(8) << "void Vm::VmConfigSm::doTryEnable()"
              << " for " << vmConfig()->name();
  if (unlink(path.charPtr()) == 0)
    VM_TRACE(8) << "doTryEnable"
                << " " << path << " removed";
  if (startQemu() < 0) {
    VM_TRACE(1) << "doTryEnable"
                << " FAIL: starting qemu failed ";
    return;
  }
  if (setupMonitor() < 0) {
    VM_TRACE(1) << "doTryEnable"
                << " FAIL: cannot setup monitor,"
                << " check if qemu process has died,"
                << " if so check qemu args ";
    killQemu();
  }
  // Without a monitor too: nothing is tried again until the VM is switched off and on.
  vmStatus()->stateIs("Starting");
  vmStatus()->enabledIs(true);
}

void VmConfigSm::doTryDisable() {
  VM_TRACE(8) << "void Vm::VmConfigSm::doTryDisable()"
              << " for " << vmConfig()->name();
  for (const auto& [nicId, vnic] : vnic_) {
    unpopulateStaticMacAddress(vnic->macAddr().text(), vnic->backendDev());
    netlink::deviceRemove(vnic->macvtapDev().charPtr());
    vnicDel(nicId);
  }
  destroyMonitor();
  killQemu();
  vmStatus()->enabledIs(false);
}

void VmConfigSm::handleClock() { doMonitorActivity(); }

void VmConfigSm::doMonitorActivity() {
  VM_TRACE(8) << "void Vm::VmConfigSm::doMonitorActivity()"
              << " for " << vmConfig()->name();
  if (!monSm() || !monitorStatus()) return;
  if (monSm()->qmpNotHeardFor() > notHeardLimit) {
    destroyMonitor();
    if (setupMonitor() < 0) {
      VM_TRACE(1) << "doMonitorActivity"
                  << " FAIL: cannot reconnect qemu monitor ";
      killQemu();
      return;
    }
  }
  sendMonitorCommand(MonitorCommand::queryStatus, nullptr);
  if (vmStatus()->consolePtyPath().empty())
    sendMonitorCommand(MonitorCommand::queryChardev, nullptr);
  doScheduleMonitoring();
}

void VmConfigSm::doScheduleMonitoring() {
  VM_TRACE(9) << "void Vm::VmConfigSm::doScheduleMonitoring()"
              << " for " << vmConfig()->name();
  clock_.timeMinIs(rt::currentTime() + monitorInterval());
}

void VmConfigSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  StateMachineOf::hasNotificationActiveIs(active);
  if (monSm()) monSm()->hasNotificationActiveIs(active);
}

Vnic::Ptr VmConfigSm::vnicIs(const rt::String& nicId, const rt::String& backendId,
                             const rt::EthAddr& macAddr, const rt::String& backendDev,
                             uint32_t macvtapFd) {
  if (Vnic::Ptr existing = vnic(nicId)) {
    rt::requireSame<Vnic, &Vnic::backendId>(*existing, backendId);
    rt::requireSame<Vnic, &Vnic::macAddr>(*existing, macAddr);
    existing->backendDevIs(backendDev);
    existing->macvtapFdIs(macvtapFd);
    return existing;
  }
  return instantiate<&VmConfigSm::vnic>(vnic_, nicId, nicId, backendId, macAddr, backendDev,
                                        macvtapFd);
}

Vnic::Ptr VmConfigSm::vnicDel(const rt::String& nicId) {
  return remove<&VmConfigSm::vnic>(vnic_, nicId);
}

void VmConfigSm::vnicDelAll() { removeAll<&VmConfigSm::vnic>(vnic_); }

void VmConfigSm::pendingVnicIs(uint32_t cmdId, const Vnic::Ptr& vnic) {
  if (vnic)
    store<&VmConfigSm::pendingVnic>(pendingVnic_, cmdId, vnic);
  else
    pendingVnicDel(cmdId);
}

Vnic::Ptr VmConfigSm::pendingVnicDel(uint32_t cmdId) {
  return remove<&VmConfigSm::pendingVnic>(pendingVnic_, cmdId);
}

void VmConfigSm::pendingVnicDelAll() { removeAll<&VmConfigSm::pendingVnic>(pendingVnic_); }

}  // namespace Vm
