#include "host/fakes/FakeAgent.h"

#include <algorithm>

#include "runtime/base/Trace.h"

namespace host::fakes {

FakeMachine::FakeMachine(Vm::VmConfig::PtrConst config, Vm::VmStatus::Ptr status, Fortune& fortune)
    : status_(std::move(status)),
      fortune_(fortune),
      config_(*this, std::move(config)),
      process_(*this) {
  handleInitialized();
}

void FakeMachine::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  doSwitch();
}

void FakeMachine::handleEnabled() {
  doSwitch();
  if (fortune_.throws.contains(config_->name()))
    throw rt::Exception("the agent has no more descriptors");
}

void FakeMachine::doSwitch() {
  if (config_->enabled() == status_->enabled()) return;
  if (!config_->enabled()) return switchOff();
  if (!start()) return;
  status_->stateIs("Starting");
  status_->enabledIs(true);
}

bool FakeMachine::start() {
  const rt::String& name = config_->name();
  const auto isOfVm = [&](const FakeProcess::Ptr& process) { return process->vm() == name; };
  if (fortune_.startFails.contains(name)) {
    fortune_.effects.push_back("fail " + name.str());
    VM_TRACE(1) << "FAIL: starting qemu failed";
    return false;
  }
  fortune_.twoOfOneVm = fortune_.twoOfOneVm ||
                        std::any_of(fortune_.processes.begin(), fortune_.processes.end(), isOfVm);
  fortune_.effects.push_back("start " + name.str());
  fortune_.processes.push_back(rt::make<FakeProcess>(name, fortune_.nextPid++));
  processIs(fortune_.processes.back());
  return true;
}

void FakeMachine::switchOff() {
  if (fortune_.complains.contains(config_->name()))
    VM_TRACE(1) << "FAIL: no such device: " << config_->name();
  if (qemuChildProcess()) {
    fortune_.effects.push_back("kill " + config_->name().str());
    qemuChildProcess()->kill();
  }
  status_->enabledIs(false);
}

void FakeMachine::handleProcess() {
  processIs(nullptr);
  status_->stateIs("Stopped");
}

void FakeMachine::processIs(const FakeProcess::Ptr& process) {
  process_.notifierIs(process);
  tell<&FakeMachine::qemuChildProcess>();
}

FakeVmSet::FakeVmSet(Vm::Config::PtrConst config, Vm::Status::Ptr status, Fortune& fortune)
    : status_(std::move(status)), fortune_(fortune), config_(*this, std::move(config)) {
  handleInitialized();
}

void FakeVmSet::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const auto& [name, vm] : config_->vmConfigs()) handleVm(name);
}

void FakeVmSet::handleVm(const rt::String& name) {
  if (const auto vm = config_->vmConfig(name)) {
    const auto status = status_->vmStatusIs(name);
    if (fortune_.mountThrows.contains(name)) throw rt::Exception("the agent has no more memory");
    instantiate<&FakeVmSet::vmConfigSm>(machines_, name, vm, status, fortune_);
    return;
  }
  if (const auto machine = vmConfigSm(name)) machine->switchOff();
  remove<&FakeVmSet::vmConfigSm>(machines_, name);
  status_->vmStatusDel(name);
  if (fortune_.throws.contains(name)) throw rt::Exception("the agent cannot let go");
}

FakeRoot::Ptr fakeAgent(const Vm::Config::Ptr& config, const Vm::Status::Ptr& status,
                        Fortune& fortune) {
  return rt::make<FakeRoot>(rt::make<FakeCreator>(rt::make<FakeVmSet>(config, status, fortune)));
}

}  // namespace host::fakes
