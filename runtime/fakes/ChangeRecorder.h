// Remembers, in order, what entities tell of.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "runtime/entity/Reactor.h"

namespace rt::fakes {

// Each change is a line: "Vm::VmStatus.state = Running" for a scalar, "Vm::Config.vmConfig[web1]"
// for a collection, "Vm::Root.agent" for a reference.
class ChangeRecorder final : public StateMachineOf<ChangeRecorder> {
 public:
  void watch(const rt::Ptr<const Entity>& entity) {
    reactors_.push_back(
        std::make_unique<AnyReactor<ChangeRecorder, &ChangeRecorder::handleChange>>(*this, entity));
  }

  // What was told since the last call.
  std::vector<std::string> take() { return std::exchange(changes_, {}); }

  static constexpr std::string_view typeName = "rt::fakes::ChangeRecorder";
  using Attributes = AttributeTable<Attribute<"initialized", &ChangeRecorder::initialized>>;

 private:
  void handleChange(const Entity& entity, const Change& change);

  std::vector<std::string> changes_;
  std::vector<std::unique_ptr<AnyReactor<ChangeRecorder, &ChangeRecorder::handleChange>>> reactors_;
};

}  // namespace rt::fakes
