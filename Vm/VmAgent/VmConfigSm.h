// The state machine of one VM.
#pragma once

#include "Vm/Monitor/MonitorSm.h"
#include "Vm/VmAgent/ChildProcess.h"
#include "Vm/VmAgent/Vnic.h"
#include "runtime/records/Bridging.h"
#include "runtime/records/Interface.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace Vm {

class VmSm;

// Switches one VM on and off, watches over it while it runs, and keeps its cards on their
// interfaces. The status record and what is there (process, session) are its state:
//
//   situation                  | status enabled, state     | process, session
//   configured disabled        | false, unchanged          | none
//   start failed: no QEMU      | false, unchanged          | none
//   start failed: no monitor   | true, "Starting"          | process killed, no session
//   started                    | true, "Starting", then    | both; a tick every 5 s
//                              |   what the monitor says   |
//   monitor lost, QEMU lives   | true, unchanged           | session rebuilt, or process killed
//   process ended              | true, "Stopped"           | none
//   disabled                   | false, unchanged until    | torn down
//                              |   the end is seen         |
//
// Created by VmSm for each configured VM, and destroyed with its configuration. Its end does not
// stop the guest.
class VmConfigSm final : public rt::StateMachineOf<VmConfigSm> {
 public:
  using Vnics = rt::Collection<rt::String, Vnic::Ptr>;
  using PendingVnics = rt::Collection<uint32_t, Vnic::Ptr>;

  // `vmSm`, which owns this, is not kept alive by it.
  VmConfigSm(VmConfig::PtrConst vmConfig, VmStatus::Ptr vmStatus,
             Bridging::Input::Config::Ptr bridgingInputConfig,
             Interface::AllIntfStatusDir::PtrConst allIntfStatusDir, const rt::Ptr<VmSm>& vmSm,
             rt::Clock::Ptr clock);
  ~VmConfigSm() override;

  const VmConfig::PtrConst& vmConfig() const { return vmConfig_.notifier(); }
  const VmStatus::Ptr& vmStatus() const { return vmStatus_; }
  const Bridging::Input::Config::Ptr& bridgingInputConfig() const { return bridgingInputConfig_; }
  const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }
  rt::Ptr<VmSm> vmSm() const;
  const rt::Clock::Ptr& clock() const { return clock_.notifier(); }
  static constexpr rt::Seconds monitorIntervalSeconds{5.0};
  rt::Seconds monitorInterval() const { return monitorIntervalSeconds; }

  // The cards, by QEMU's card id, and those whose attach or detach is in flight, by command id.
  const Vnics& vnics() const { return vnic_; }
  Vnic::Ptr vnic(const rt::String& nicId) const { return vnic_.get(nicId); }
  // An existing card must have the same backend and MAC address (else ReinstantiationException);
  // its interface and its descriptor become those given, without closing what it had.
  Vnic::Ptr vnicIs(const rt::String& nicId, const rt::String& backendId, const rt::EthAddr& macAddr,
                   const rt::String& backendDev, uint32_t macvtapFd);
  Vnic::Ptr vnicDel(const rt::String& nicId);
  void vnicDelAll();
  const PendingVnics& pendingVnics() const { return pendingVnic_; }
  Vnic::Ptr pendingVnic(uint32_t cmdId) const { return pendingVnic_.get(cmdId); }
  void pendingVnicIs(uint32_t cmdId, const Vnic::Ptr& vnic);  // null: removes the entry
  Vnic::Ptr pendingVnicDel(uint32_t cmdId);
  void pendingVnicDelAll();

  // QEMU's process: from a launch until its end is seen. (QemuProcess.cpp)
  const ChildProcess::Ptr& qemuChildProcess() const { return qemuChildProcess_.notifier(); }
  void qemuChildProcessIs(const ChildProcess::Ptr& child);
  void qemuChildProcessDel();

  // QEMU's command line, blank-separated; empty until it could be composed. (QemuCommandLine.cpp)
  const rt::String& qemuCommandLine() const { return qemuCommandLine_; }
  void doComposeQemuCommandLine();
  // The command line's words as a null-terminated vector of C strings, or null when it has none.
  // To be given back to freeArgv().
  void* allocArgvFromQemuCommandline() const;
  void freeArgv(void* argv) const;

  // The monitor session. (MonitorAttachment.cpp)
  const rt::FileDescriptor::Ptr& monFd() const { return monFd_; }
  const MonitorSm::Ptr& monSm() const { return monSm_; }
  const MonitorInput::Ptr& monitorInput() const { return monitorInput_; }
  const MonitorOutput::Ptr& monitorOutput() const { return monitorOutput_.notifier(); }
  const MonitorStatus::Ptr& monitorStatus() const { return monitorStatus_.notifier(); }

  // For VmSm. (VmConfigSm.cpp, NicAttachment.cpp, StaticMac.cpp)
  void doTryDisable();
  void unpopulateAllStaticMacs();
  void doDeviceConnected(const rt::String& intfName);
  void doDeviceDisconnected(const rt::String& intfName);
  // Whoever still holds it, a removed machine has no set.
  void handleRemoval() override {
    vmSm_ = nullptr;
    StateMachineOf::handleRemoval();
  }
  // Of the machine, its reactors and its monitor session.
  void hasNotificationActiveIs(bool active) override;

  static constexpr std::string_view typeName = "Vm::VmConfigSm";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"vmConfig", &VmConfigSm::vmConfig>,
      rt::Attribute<"vmStatus", &VmConfigSm::vmStatus>,
      rt::Attribute<"bridgingInputConfig", &VmConfigSm::bridgingInputConfig>,
      rt::Attribute<"allIntfStatusDir", &VmConfigSm::allIntfStatusDir>,
      rt::Attribute<"vmSm", &VmConfigSm::vmSm>, rt::Attribute<"clock", &VmConfigSm::clock>,
      rt::Attribute<"initialized", &VmConfigSm::initialized>,
      rt::Attribute<"monitorInterval", &VmConfigSm::monitorInterval>,
      rt::CollectionAttribute<"vnic", &VmConfigSm::vnic, &VmConfigSm::vnics>,
      rt::CollectionAttribute<"pendingVnic", &VmConfigSm::pendingVnic, &VmConfigSm::pendingVnics>,
      rt::Attribute<"qemuCommandLine", &VmConfigSm::qemuCommandLine>,
      rt::Attribute<"qemuChildProcess", &VmConfigSm::qemuChildProcess>,
      rt::Attribute<"monFd", &VmConfigSm::monFd>, rt::Attribute<"monSm", &VmConfigSm::monSm>,
      rt::Attribute<"monitorInput", &VmConfigSm::monitorInput>,
      rt::Attribute<"monitorOutput", &VmConfigSm::monitorOutput>,
      rt::Attribute<"monitorStatus", &VmConfigSm::monitorStatus>>;

 private:
  // Lifecycle. (VmConfigSm.cpp)
  void handleInitialized();
  void handleEnabled();
  void handleDiskImage();
  void handleClock();
  void doTryEnableDisable();
  void doTryEnable();
  void doMonitorActivity();
  void doScheduleMonitoring();

  // QEMU's process. They return 0, or -1 after a trace. (QemuProcess.cpp)
  int startQemu();
  void killQemu();
  void handleQemuChildProcessStatus();

  // The monitor session. (MonitorAttachment.cpp)
  int setupMonitor();
  void destroyMonitor();
  uint32_t sendMonitorCommand(MonitorCommand cmd, const MonitorCommandArgs::PtrConst& args);
  void handleMonitorStatus();
  void handleDisconnected();
  void handleConnected();
  int connectMonitor(const rt::String& path) const;
  rt::FileDescriptor::Ptr monFdIs(const rt::String& name);
  void monSmIs(const MonitorInput::Ptr& input, const MonitorOutput::Ptr& output,
               const MonitorStatus::Ptr& status, const rt::FileDescriptor::Ptr& monFd,
               const rt::Clock::Ptr& clock);
  void monSmDel();
  void monitorInputIs(const MonitorInput::Ptr& input);
  void monitorOutputIs(const MonitorOutput::Ptr& output);
  void monitorStatusIs(const MonitorStatus::Ptr& status);

  // What the session answers. (MonitorResponse.cpp)
  void handleMonitorResponse();
  void handleBackendAdded();
  void handleBackendDeleted();
  // The card whose command was answered; null after a trace when there is none.
  Vnic::Ptr answeredVnic(const char* request) const;

  // Cards. (NicAttachment.cpp)
  void setupNetworkDevice(const Vnic::Ptr& vnic);
  void destroyNetworkDevice(const Vnic::Ptr& vnic);
  // Static MAC entries. (StaticMac.cpp)
  void populateStaticMacAddress(const rt::String& macAddr, const rt::String& kernelDev);
  void unpopulateStaticMacAddress(const rt::String& macAddr, const rt::String& kernelDev);

  void qemuCommandLineIs(const rt::String& line) {
    assign<&VmConfigSm::qemuCommandLine>(qemuCommandLine_, line);
  }

  const VmStatus::Ptr vmStatus_;
  const Bridging::Input::Config::Ptr bridgingInputConfig_;
  const Interface::AllIntfStatusDir::PtrConst allIntfStatusDir_;
  VmSm* vmSm_;
  Vnics vnic_;
  PendingVnics pendingVnic_;
  rt::String qemuCommandLine_;
  rt::FileDescriptor::Ptr monFd_;
  MonitorInput::Ptr monitorInput_;
  MonitorSm::Ptr monSm_;

  rt::Reactor<VmConfigSm, const VmConfig, rt::On<&VmConfig::enabled, &VmConfigSm::handleEnabled>,
              rt::On<&VmConfig::diskImage, &VmConfigSm::handleDiskImage>>
      vmConfig_;
  rt::ClockReactor<VmConfigSm, &VmConfigSm::handleClock> clock_;
  rt::Reactor<VmConfigSm, ChildProcess,
              rt::On<&ChildProcess::status, &VmConfigSm::handleQemuChildProcessStatus>>
      qemuChildProcess_;
  rt::Reactor<VmConfigSm, MonitorOutput,
              rt::On<&MonitorOutput::counter, &VmConfigSm::handleMonitorResponse>>
      monitorOutput_;
  rt::Reactor<VmConfigSm, MonitorStatus,
              rt::On<&MonitorStatus::state, &VmConfigSm::handleMonitorStatus>>
      monitorStatus_;
};

}  // namespace Vm
