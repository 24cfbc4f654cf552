// The state machine over the set of configured VMs.
#pragma once

#include "Vm/VmAgent/VmConfigSm.h"

namespace Vm {

// Keeps one status record and one VmConfigSm per configured VM.
//
//   configuration | machine | event: the member changed, or a full pass
//   present       | present | nothing
//   present       | absent  | makes the status record, if missing, and the machine
//   absent        | any     | static MAC entries go, the VM is stopped, machine and record go
//
// On an interface's change it tells every machine whether the device is there. While VMs are
// configured it ticks every 5 seconds, to no effect; once it stopped for lack of VMs it does not
// tick again. Owned by the agent's creator. Its end stops no guest.
class VmSm final : public rt::StateMachineOf<VmSm> {
 public:
  using VmConfigSms = rt::Collection<rt::String, VmConfigSm::Ptr>;

  VmSm(Config::PtrConst config, Status::Ptr status, Interface::DeviceIntfStatusDir::PtrConst kisd,
       Bridging::Input::Config::Ptr bridgingInputConfig,
       Interface::AllIntfStatusDir::PtrConst allIntfStatusDir, rt::Clock::Ptr clock);
  ~VmSm() override;

  const Config::PtrConst& config() const { return config_.notifier(); }
  const Status::Ptr& status() const { return status_; }
  // The interfaces whose kernel device is there.
  const Interface::DeviceIntfStatusDir::PtrConst& kisd() const { return kisd_.notifier(); }
  const Bridging::Input::Config::Ptr& bridgingInputConfig() const { return bridgingInputConfig_; }
  const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }
  const rt::Clock::Ptr& clock() const { return clock_.notifier(); }
  static constexpr rt::Seconds monitorIntervalSeconds{5.0};
  rt::Seconds monitorInterval() const { return monitorIntervalSeconds; }

  const VmConfigSms& vmConfigSms() const { return vmConfigSm_; }
  VmConfigSm::Ptr vmConfigSm(const rt::String& name) const { return vmConfigSm_.get(name); }
  VmConfigSm::Ptr vmConfigSmIs(const VmConfig::PtrConst& vmConfig, const VmStatus::Ptr& vmStatus,
                               const Bridging::Input::Config::Ptr& bridgingInputConfig,
                               const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir,
                               const VmSm::Ptr& vmSm, const rt::Clock::Ptr& clock);
  VmConfigSm::Ptr vmConfigSmDel(const rt::String& name);
  void vmConfigSmDelAll();

  // For every interface whose device is there.
  void handleIntfStatusAndDeviceName();
  // Of the machine, its reactors and every VM's machine.
  void hasNotificationActiveIs(bool active) override;
  // Whoever removes it switched it off before; its reactors stay until it has cleaned up.
  void handleRemoval() override {}

  static constexpr std::string_view typeName = "Vm::VmSm";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"config", &VmSm::config>, rt::Attribute<"status", &VmSm::status>,
      rt::Attribute<"kisd", &VmSm::kisd>,
      rt::Attribute<"bridgingInputConfig", &VmSm::bridgingInputConfig>,
      rt::Attribute<"allIntfStatusDir", &VmSm::allIntfStatusDir>,
      rt::Attribute<"clock", &VmSm::clock>,
      rt::CollectionAttribute<"vmConfigSm", &VmSm::vmConfigSm, &VmSm::vmConfigSms>,
      rt::Attribute<"initialized", &VmSm::initialized>,
      rt::Attribute<"monitorInterval", &VmSm::monitorInterval>>;

 private:
  void handleInitialized();
  void handleVmConfig();
  void handleVmConfigOf(const rt::String& name);
  void addVm(const rt::String& name);
  void removeVm(const rt::String& name);
  void handleIntfStatusAndDeviceNameOf(const rt::IntfId& intfId);
  void handleClock();
  void doMonitorActivity();
  void handleCleanup();
  void handleEnd() override { handleCleanup(); }

  const Status::Ptr status_;
  const Bridging::Input::Config::Ptr bridgingInputConfig_;
  const Interface::AllIntfStatusDir::PtrConst allIntfStatusDir_;
  VmConfigSms vmConfigSm_;

  rt::Reactor<VmSm, const Config, rt::On<&Config::vmConfig, &VmSm::handleVmConfigOf>> config_;
  rt::Reactor<VmSm, const Interface::DeviceIntfStatusDir,
              rt::On<&Interface::DeviceIntfStatusDir::intfStatusAndDeviceName,
                     &VmSm::handleIntfStatusAndDeviceNameOf>>
      kisd_;
  rt::ClockReactor<VmSm, &VmSm::handleClock> clock_;
};

}  // namespace Vm
