#include "Vm/VmAgent/VmRoot.h"

#include <tuple>

#include "runtime/base/Trace.h"
#include "runtime/entity/TypeRegistry.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm {

AgentCreator::AgentCreator(Config::PtrConst config, Status::Ptr status,
                           Interface::AllIntfStatusDir::Ptr allIntfStatusDir,
                           Interface::AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir,
                           Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir,
                           KernelNetInfo::Status::PtrConst kniStatus,
                           Bridging::Input::Config::Ptr bridgingInputConfig)
    : config_(std::move(config)),
      status_(std::move(status)),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      kniStatus_(std::move(kniStatus)),
      bridgingInputConfig_(std::move(bridgingInputConfig)) {
  handleInitialized();
}

AgentCreator::~AgentCreator() {
  intfStatusManagerRootDel();
  vmSmDel();
}

void AgentCreator::handleInitialized() {
  VM_TRACE(8) << "void Vm::AgentCreator::handleInitialized()"
              << " initialized ? " << initialized();
  if (initialized()) return;
  intfStatusManagerRootIs(allIntfStatusDir(), allIntfStatusLocalDir(), /*filterByNetNs=*/false);
  intfStatusManagerRoot()->intfStatusManagerIs(deviceIntfStatusDir(), kniStatus(),
                                               rt::NamespaceName::defaultNamespace());
  const rt::Clock::Ptr clock = rt::activityManager().clock();
  vmSmIs(config(), status(), deviceIntfStatusDir(), bridgingInputConfig(), allIntfStatusDir(),
         clock);
  assign<&AgentCreator::initialized>(initialized_, true);
}

Interface::NetNsIntfStatusManagerRoot::Ptr AgentCreator::intfStatusManagerRootIs(
    const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir,
    const Interface::AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir, bool filterByNetNs) {
  if (const auto& old = intfStatusManagerRoot();
      old && old->allIntfStatusDir() == allIntfStatusDir &&
      old->allIntfStatusLocalDir() == allIntfStatusLocalDir &&
      old->filterByNetNs() == filterByNetNs)
    return old;
  intfStatusManagerRootDel();
  assign<&AgentCreator::intfStatusManagerRoot>(
      intfStatusManagerRoot_, rt::make<Interface::NetNsIntfStatusManagerRoot>(
                                  allIntfStatusDir, allIntfStatusLocalDir, filterByNetNs));
  intfStatusManagerRoot()->hasNotificationActiveIs(true);
  return intfStatusManagerRoot();
}

void AgentCreator::intfStatusManagerRootDel() {
  drop<&AgentCreator::intfStatusManagerRoot>(intfStatusManagerRoot_);
}

VmSm::Ptr AgentCreator::vmSmIs(const Config::PtrConst& config, const Status::Ptr& status,
                               const Interface::DeviceIntfStatusDir::PtrConst& deviceIntfStatusDir,
                               const Bridging::Input::Config::Ptr& bridgingInputConfig,
                               const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir,
                               const rt::Clock::Ptr& clock) {
  if (vmSm()) {
    rt::requireSame<VmSm, &VmSm::config>(*vmSm(), config);
    rt::requireSame<VmSm, &VmSm::status>(*vmSm(), status);
    rt::requireSame<VmSm, &VmSm::kisd>(*vmSm(), deviceIntfStatusDir);
    rt::requireSame<VmSm, &VmSm::bridgingInputConfig>(*vmSm(), bridgingInputConfig);
    rt::requireSame<VmSm, &VmSm::allIntfStatusDir>(*vmSm(), allIntfStatusDir);
    rt::requireSame<VmSm, &VmSm::clock>(*vmSm(), clock);
    return vmSm();
  }
  assign<&AgentCreator::vmSm>(vmSm_, rt::make<VmSm>(config, status, deviceIntfStatusDir,
                                                    bridgingInputConfig, allIntfStatusDir, clock));
  vmSm()->hasNotificationActiveIs(true);
  return vmSm();
}

void AgentCreator::vmSmDel() {
  if (!vmSm()) return;
  vmSm()->hasNotificationActiveIs(false);
  drop<&AgentCreator::vmSm>(vmSm_);
}

namespace {

template <class T>
void requireInput(const rt::Ptr<T>& input, const char* attribute) {
  if (!input) throw rt::NullArgumentException(AgentCreator::typeName, attribute);
}

}  // namespace

AgentCreator::Ptr Root::agentIs(
    const Config::PtrConst& config, const Status::Ptr& status,
    const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir,
    const Interface::AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir,
    const Interface::DeviceIntfStatusDir::Ptr& deviceIntfStatusDir,
    const KernelNetInfo::Status::PtrConst& kniStatus,
    const Bridging::Input::Config::Ptr& bridgingInputConfig) {
  requireInput(config, "config");
  requireInput(status, "status");
  requireInput(allIntfStatusDir, "allIntfStatusDir");
  requireInput(allIntfStatusLocalDir, "allIntfStatusLocalDir");
  requireInput(deviceIntfStatusDir, "deviceIntfStatusDir");
  requireInput(kniStatus, "kniStatus");
  requireInput(bridgingInputConfig, "bridgingInputConfig");
  if (agent() && agent()->config() == config && agent()->status() == status &&
      agent()->allIntfStatusDir() == allIntfStatusDir &&
      agent()->allIntfStatusLocalDir() == allIntfStatusLocalDir &&
      agent()->deviceIntfStatusDir() == deviceIntfStatusDir && agent()->kniStatus() == kniStatus &&
      agent()->bridgingInputConfig() == bridgingInputConfig)
    return agent();
  // Copies: what is handed over may be the old agent's own attributes.
  const std::tuple inputs(config, status, allIntfStatusDir, allIntfStatusLocalDir,
                          deviceIntfStatusDir, kniStatus, bridgingInputConfig);
  agentDel();
  auto created =
      std::apply([](const auto&... input) { return rt::make<AgentCreator>(input...); }, inputs);
  created->parentIs(this);
  assign<&Root::agent>(agent_, created);
  created->hasNotificationActiveIs(true);
  return created;
}

void Root::agentDel() {
  if (agent()) agent()->parentIs(nullptr);
  drop<&Root::agent>(agent_);
}

Root::Ptr rootFactory(const rt::String& name) {
  auto root = rt::make<Root>(name);
  root->hasNotificationActiveIs(true);
  return root;
}

// Prefix of network namespace names.
extern const rt::String namespacePrefix;
const rt::String namespacePrefix = "ns-";

namespace {

const rt::RegisteredTypes<Vnic, ChildProcess, ChildProcessSm, VmConfigSm, VmSm, AgentCreator, Root>
    registered;

}  // namespace

}  // namespace Vm

extern "C" void vmAgentRootFactory(const char* name, Vm::Root::Ptr* root) {
  *root = Vm::rootFactory(name);
}
