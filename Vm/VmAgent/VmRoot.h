// The agent's root and its creator: the start and the end of its life.
#pragma once

#include "Vm/VmAgent/VmSm.h"
#include "runtime/interfaces/NetNsIntfStatusManager.h"

namespace Vm {

// Holds what the host hands over, and brings the VM set to life.
//
//   initialized | event               | it does
//   no          | handleInitialized() | interface-status manager, then the VM set; initialized
//   yes         | handleInitialized() | nothing
//
// When it ends, the manager goes first and then the VM set; no QEMU process is stopped.
class AgentCreator final : public rt::EntityOf<AgentCreator> {
 public:
  AgentCreator(Config::PtrConst config, Status::Ptr status,
               Interface::AllIntfStatusDir::Ptr allIntfStatusDir,
               Interface::AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir,
               Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir,
               KernelNetInfo::Status::PtrConst kniStatus,
               Bridging::Input::Config::Ptr bridgingInputConfig);
  ~AgentCreator() override;

  const Config::PtrConst& config() const { return config_; }
  const Status::Ptr& status() const { return status_; }
  const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir() const { return allIntfStatusDir_; }
  const Interface::AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir() const {
    return allIntfStatusLocalDir_;
  }
  const Interface::DeviceIntfStatusDir::Ptr& deviceIntfStatusDir() const {
    return deviceIntfStatusDir_;
  }
  const KernelNetInfo::Status::PtrConst& kniStatus() const { return kniStatus_; }
  const Bridging::Input::Config::Ptr& bridgingInputConfig() const { return bridgingInputConfig_; }

  bool initialized() const { return initialized_; }
  void handleInitialized();

  const Interface::NetNsIntfStatusManagerRoot::Ptr& intfStatusManagerRoot() const {
    return intfStatusManagerRoot_;
  }
  // Keeps one that was made of the same; replaces another.
  Interface::NetNsIntfStatusManagerRoot::Ptr intfStatusManagerRootIs(
      const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir,
      const Interface::AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir, bool filterByNetNs);
  void intfStatusManagerRootDel();

  const VmSm::Ptr& vmSm() const { return vmSm_; }
  VmSm::Ptr vmSmIs(const Config::PtrConst& config, const Status::Ptr& status,
                   const Interface::DeviceIntfStatusDir::PtrConst& deviceIntfStatusDir,
                   const Bridging::Input::Config::Ptr& bridgingInputConfig,
                   const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir,
                   const rt::Clock::Ptr& clock);
  void vmSmDel();

  static constexpr std::string_view typeName = "Vm::AgentCreator";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"config", &AgentCreator::config>,
      rt::Attribute<"status", &AgentCreator::status>,
      rt::Attribute<"allIntfStatusDir", &AgentCreator::allIntfStatusDir>,
      rt::Attribute<"allIntfStatusLocalDir", &AgentCreator::allIntfStatusLocalDir>,
      rt::Attribute<"deviceIntfStatusDir", &AgentCreator::deviceIntfStatusDir>,
      rt::Attribute<"kniStatus", &AgentCreator::kniStatus>,
      rt::Attribute<"bridgingInputConfig", &AgentCreator::bridgingInputConfig>,
      rt::Attribute<"initialized", &AgentCreator::initialized>,
      rt::Attribute<"intfStatusManagerRoot", &AgentCreator::intfStatusManagerRoot>,
      rt::Attribute<"vmSm", &AgentCreator::vmSm>>;

 private:
  const Config::PtrConst config_;
  const Status::Ptr status_;
  const Interface::AllIntfStatusDir::Ptr allIntfStatusDir_;
  const Interface::AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir_;
  const Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir_;
  const KernelNetInfo::Status::PtrConst kniStatus_;
  const Bridging::Input::Config::Ptr bridgingInputConfig_;
  bool initialized_ = false;
  Interface::NetNsIntfStatusManagerRoot::Ptr intfStatusManagerRoot_;
  VmSm::Ptr vmSm_;
};

// What the host gets when it loads the module. agentIs() and agentDel() are virtual so that the
// host can call them without being linked with the module; were the class final, the compiler would
// call them directly all the same.
class Root : public rt::EntityOf<Root> {
 public:
  explicit Root(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }
  const AgentCreator::Ptr& agent() const { return agent_; }

  // Starts the agent on seven mounted entities. An agent on the very same ones is returned as it
  // is; one on others is released first.
  virtual AgentCreator::Ptr agentIs(
      const Config::PtrConst& config, const Status::Ptr& status,
      const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir,
      const Interface::AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir,
      const Interface::DeviceIntfStatusDir::Ptr& deviceIntfStatusDir,
      const KernelNetInfo::Status::PtrConst& kniStatus,
      const Bridging::Input::Config::Ptr& bridgingInputConfig);
  // Ends the agent; running guests stay.
  virtual void agentDel();

  static constexpr std::string_view typeName = "Vm::Root";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &Root::name>, rt::Attribute<"agent", &Root::agent>>;

 private:
  const rt::String name_;
  AgentCreator::Ptr agent_;
};

// A new root, with notifications on.
Root::Ptr rootFactory(const rt::String& name);

// The module's one symbol for the host: stores a new root in `root`.
using RootFactory = void (*)(const char* name, Root::Ptr* root);
inline constexpr const char* rootFactorySymbol = "vmAgentRootFactory";

}  // namespace Vm
