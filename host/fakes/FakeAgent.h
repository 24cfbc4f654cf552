// An agent as the host sees one: it follows the configuration, writes status, and has processes
// that begin and end as a test says.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace host::fakes {

// A guest's process. It ends when the test says so, killed or not.
class FakeProcess final : public rt::EntityOf<FakeProcess> {
 public:
  FakeProcess(rt::String vm, int32_t pid) : vm_(std::move(vm)), pid_(pid) {}

  const rt::String& vm() const { return vm_; }
  int32_t pid() const { return pid_; }
  const rt::String& status() const { return status_; }
  void statusIs(const rt::String& status) { assign<&FakeProcess::status>(status_, status); }
  int32_t exitSignal() const { return exitSignal_; }
  void exitSignalIs(int32_t number) { assign<&FakeProcess::exitSignal>(exitSignal_, number); }
  int32_t exitStatus() const { return exitStatus_; }
  void exitStatusIs(int32_t code) { assign<&FakeProcess::exitStatus>(exitStatus_, code); }

  // It was told to end, which takes it a while.
  bool isKilled() const { return isKilled_; }
  void kill() { isKilled_ = true; }

  static constexpr std::string_view typeName = "host::fakes::FakeProcess";
  using Attributes = rt::AttributeTable<rt::Attribute<"vm", &FakeProcess::vm>,
                                        rt::Attribute<"pid", &FakeProcess::pid>,
                                        rt::Attribute<"exitSignal", &FakeProcess::exitSignal>,
                                        rt::Attribute<"exitStatus", &FakeProcess::exitStatus>,
                                        rt::Attribute<"status", &FakeProcess::status>>;

 private:
  const rt::String vm_;
  const int32_t pid_;
  rt::String status_ = "none";
  int32_t exitSignal_ = 0;
  int32_t exitStatus_ = 0;
  bool isKilled_ = false;
};

// How the agent fares with the VMs that are named.
struct Fortune {
  std::set<rt::String> startFails;  // level-1 message, no process, status not enabled
  std::set<rt::String> throws;      // what handles a change of the VM's record, after it did
  std::set<rt::String> mountThrows;
  std::set<rt::String> complains;    // level-1 message when it is switched off
  bool twoOfOneVm = false;           // a process was started while another of that VM was there
  std::vector<std::string> effects;  // "start web1", "fail web1", "kill web1"
  std::vector<FakeProcess::Ptr> processes;
  int32_t nextPid = 100;

  std::vector<std::string> take() { return std::exchange(effects, {}); }
};

// The machine of one VM.
class FakeMachine final : public rt::StateMachineOf<FakeMachine> {
 public:
  FakeMachine(Vm::VmConfig::PtrConst config, Vm::VmStatus::Ptr status, Fortune& fortune);

  const FakeProcess::Ptr& qemuChildProcess() const { return process_.notifier(); }
  void doSwitch();
  void switchOff();
  // Tells of itself, as of a card.
  void stir() { tell<&FakeMachine::initialized>(); }

  static constexpr std::string_view typeName = "host::fakes::FakeMachine";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &FakeMachine::initialized>,
                         rt::Attribute<"qemuChildProcess", &FakeMachine::qemuChildProcess>>;

 private:
  void handleInitialized();
  void handleEnabled();
  void handleDiskImage() { handleEnabled(); }
  void handleProcess();
  bool start();
  void processIs(const FakeProcess::Ptr& process);

  const Vm::VmStatus::Ptr status_;
  Fortune& fortune_;

  rt::Reactor<FakeMachine, const Vm::VmConfig,
              rt::On<&Vm::VmConfig::enabled, &FakeMachine::handleEnabled>,
              rt::On<&Vm::VmConfig::diskImage, &FakeMachine::handleDiskImage>>
      config_;
  rt::Reactor<FakeMachine, FakeProcess, rt::On<&FakeProcess::status, &FakeMachine::handleProcess>>
      process_;
};

// A machine for each configured VM.
class FakeVmSet final : public rt::StateMachineOf<FakeVmSet> {
 public:
  using Machines = rt::Collection<rt::String, FakeMachine::Ptr>;

  FakeVmSet(Vm::Config::PtrConst config, Vm::Status::Ptr status, Fortune& fortune);

  const Machines& vmConfigSms() const { return machines_; }
  FakeMachine::Ptr vmConfigSm(const rt::String& name) const { return machines_.get(name); }

  static constexpr std::string_view typeName = "host::fakes::FakeVmSet";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"initialized", &FakeVmSet::initialized>,
      rt::CollectionAttribute<"vmConfigSm", &FakeVmSet::vmConfigSm, &FakeVmSet::vmConfigSms>>;

 private:
  void handleInitialized();
  void handleVm(const rt::String& name);

  const Vm::Status::Ptr status_;
  Fortune& fortune_;
  Machines machines_;

  rt::Reactor<FakeVmSet, const Vm::Config, rt::On<&Vm::Config::vmConfig, &FakeVmSet::handleVm>>
      config_;
};

class FakeCreator final : public rt::EntityOf<FakeCreator> {
 public:
  explicit FakeCreator(FakeVmSet::Ptr set) : set_(std::move(set)) {}
  const FakeVmSet::Ptr& vmSm() const { return set_; }

  static constexpr std::string_view typeName = "host::fakes::FakeCreator";
  using Attributes = rt::AttributeTable<rt::Attribute<"vmSm", &FakeCreator::vmSm>>;

 private:
  const FakeVmSet::Ptr set_;
};

class FakeRoot final : public rt::EntityOf<FakeRoot> {
 public:
  explicit FakeRoot(FakeCreator::Ptr agent) : agent_(std::move(agent)) {}
  const FakeCreator::Ptr& agent() const { return agent_; }

  static constexpr std::string_view typeName = "host::fakes::FakeRoot";
  using Attributes = rt::AttributeTable<rt::Attribute<"agent", &FakeRoot::agent>>;

 private:
  const FakeCreator::Ptr agent_;
};

// The whole, on these records. `fortune` outlives it.
FakeRoot::Ptr fakeAgent(const Vm::Config::Ptr& config, const Vm::Status::Ptr& status,
                        Fortune& fortune);

}  // namespace host::fakes
