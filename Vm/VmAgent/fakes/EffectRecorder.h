// Changes of entities among the effects.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Vm/VmAgent/fakes/EffectLog.h"
#include "runtime/entity/Reactor.h"

namespace Vm::fakes {

// Writes each change of what it watches to the log, when it is told: "VmStatus.state = Running" for
// a scalar, "Status.vmStatus[web1]" for a member, "VmConfigSm.monSm" for a reference.
class EffectRecorder final : public rt::StateMachineOf<EffectRecorder> {
 public:
  explicit EffectRecorder(EffectLog& log) : log_(log) {}

  // Called after each line.
  std::function<void(const std::string& line)> then;

  void watch(const rt::Ptr<const rt::Entity>& entity) {
    reactors_.push_back(std::make_unique<Any>(*this, entity));
  }

  static constexpr std::string_view typeName = "Vm::fakes::EffectRecorder";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &EffectRecorder::initialized>>;

 private:
  void handleChange(const rt::Entity& entity, const rt::Change& change) {
    const auto& attribute = entity.type().attributes[change.attribute];
    std::string line(entity.type().name.substr(entity.type().name.rfind(':') + 1));
    line += '.';
    line += attribute.name;
    if (change.key) line += "[" + attribute.keyText(change.key).str() + "]";
    if (attribute.text) line += " = " + attribute.text(entity).str();
    log_.add(line);
    if (then) then(line);
  }

  using Any = rt::AnyReactor<EffectRecorder, &EffectRecorder::handleChange>;

  EffectLog& log_;
  std::vector<std::unique_ptr<Any>> reactors_;
};

}  // namespace Vm::fakes
