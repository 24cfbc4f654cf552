#include "Vm/VmAgent/VmSm.h"

#include "runtime/base/Check.h"
#include "runtime/base/Trace.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm {

VmSm::VmSm(Config::PtrConst config, Status::Ptr status,
           Interface::DeviceIntfStatusDir::PtrConst kisd,
           Bridging::Input::Config::Ptr bridgingInputConfig,
           Interface::AllIntfStatusDir::PtrConst allIntfStatusDir, rt::Clock::Ptr clock)
    : status_(std::move(status)),
      bridgingInputConfig_(std::move(bridgingInputConfig)),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      config_(*this, std::move(config)),
      kisd_(*this, std::move(kisd)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

VmSm::~VmSm() { vmConfigSmDelAll(); }

void VmSm::handleInitialized() {
  VM_TRACE(8) << "void Vm::VmSm::handleInitialized()"
              << " initialized ? " << initialized();
  if (initialized()) return;
  initializedIs(true);
  handleVmConfig();
}

void VmSm::handleVmConfig() {
  VM_TRACE(8) << "void Vm::VmSm::handleVmConfig()"
              << " initialized ? " << initialized();
  if (!initialized()) return;
  for (const auto& [name, vm] : config()->vmConfigs()) handleVmConfigOf(name);
  // Records whose configuration went while the agent was not there.
  for (const auto& [name, vm] : status()->vmStatuses()) handleVmConfigOf(name);
}

void VmSm::handleVmConfigOf(const rt::String& name) {
  VM_TRACE(8) << "void Vm::VmSm::handleVmConfig(const String&)"
              << " initialized ? " << initialized();
  if (!initialized()) return;
  if (!config()->vmConfigHas(name))
    removeVm(name);
  else if (!vmConfigSm_.has(name))
    addVm(name);
}

void VmSm::addVm(const rt::String& name) {
  if (!status()->vmStatusHas(name)) {
    VM_TRACE(8) << "handleVmConfig"
                << " creating a new VmStatus for " << name;
    status()->vmStatusIs(name);
  }
  VM_TRACE(8) << "handleVmConfig"
              << " creating a new VmConfig for " << name;
  vmConfigSmIs(config()->vmConfig(name), status()->vmStatus(name), bridgingInputConfig(),
               allIntfStatusDir(), VmSm::Ptr(this), rt::activityManager().clock());
}

void VmSm::removeVm(const rt::String& name) {
  // A record left over from an earlier run has no machine.
  if (const VmConfigSm::Ptr vm = vmConfigSm(name)) {
    vm->unpopulateAllStaticMacs();
    vm->doTryDisable();
    vmConfigSmDel(name);
  }
  rt::check(status()->vmStatusHas(name), "!!status()->vmStatusHas( name )");
  status()->vmStatusDel(name);
}

void VmSm::handleIntfStatusAndDeviceName() {
  VM_TRACE(7) << "void Vm::VmSm::handleIntfStatusAndDeviceName()"
              << " initialized ? " << initialized();
  if (!initialized()) return;
  for (const auto& [intfId, device] : kisd()->intfStatusAndDeviceNames())
    handleIntfStatusAndDeviceNameOf(intfId);
}

void VmSm::handleIntfStatusAndDeviceNameOf(const rt::IntfId& intfId) {
  VM_TRACE(7) << "void Vm::VmSm::handleIntfStatusAndDeviceName(const IntfId&)"
              << " initialized ? " << initialized();
  if (!initialized()) return;
  const bool connected = kisd()->intfStatusAndDeviceNameHas(intfId);
  for (const auto& [name, vm] : vmConfigSm_) {
    if (connected)
      vm->doDeviceConnected(intfId.name());
    else
      vm->doDeviceDisconnected(intfId.name());
  }
}

void VmSm::handleClock() {
  VM_TRACE(8) << "void Vm::VmSm::handleClock()"
              << " initialized ? " << initialized();
  doMonitorActivity();
}

void VmSm::doMonitorActivity() {
  VM_TRACE(8) << "void Vm::VmSm::doMonitorActivity()"
              << " initialized ? " << initialized();
  if (!initialized()) return;
  if (config()->vmConfigs().empty()) {
    VM_TRACE(8) << "doMonitorActivity"
                << ": exiting";
    return;
  }
  clock_.timeMinIs(rt::currentTime() + monitorInterval());
}

void VmSm::handleCleanup() {
  VM_TRACE(8) << "void Vm::VmSm::handleCleanup()"
              << " initialized ? " << initialized();
}

void VmSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  StateMachineOf::hasNotificationActiveIs(active);
  for (const auto& [name, vm] : vmConfigSm_) vm->hasNotificationActiveIs(active);
}

VmConfigSm::Ptr VmSm::vmConfigSmIs(const VmConfig::PtrConst& vmConfig,
                                   const VmStatus::Ptr& vmStatus,
                                   const Bridging::Input::Config::Ptr& bridging,
                                   const Interface::AllIntfStatusDir::PtrConst& allIntfStatus,
                                   const VmSm::Ptr& vmSm, const rt::Clock::Ptr& clock) {
  if (VmConfigSm::Ptr existing = vmConfigSm(vmConfig->name())) {
    rt::requireSame<VmConfigSm, &VmConfigSm::vmConfig>(*existing, vmConfig);
    rt::requireSame<VmConfigSm, &VmConfigSm::vmStatus>(*existing, vmStatus);
    rt::requireSame<VmConfigSm, &VmConfigSm::bridgingInputConfig>(*existing, bridging);
    rt::requireSame<VmConfigSm, &VmConfigSm::allIntfStatusDir>(*existing, allIntfStatus);
    rt::requireSame<VmConfigSm, &VmConfigSm::vmSm>(*existing, vmSm);
    rt::requireSame<VmConfigSm, &VmConfigSm::clock>(*existing, clock);
    return existing;
  }
  return instantiate<&VmSm::vmConfigSm>(vmConfigSm_, vmConfig->name(), vmConfig, vmStatus, bridging,
                                        allIntfStatus, vmSm, clock);
}

VmConfigSm::Ptr VmSm::vmConfigSmDel(const rt::String& name) {
  return remove<&VmSm::vmConfigSm>(vmConfigSm_, name);
}

void VmSm::vmConfigSmDelAll() { removeAll<&VmSm::vmConfigSm>(vmConfigSm_); }

}  // namespace Vm
