// A row of vmIntent: what operators ask to be done to a VM once.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace model {

class VmIntent final : public rt::EntityOf<VmIntent> {
 public:
  explicit VmIntent(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }  // the VM's

  // How many restarts were asked for.
  uint64_t restart() const { return restart_; }
  void restartIs(uint64_t number) { assign<&VmIntent::restart>(restart_, number); }

  // The name of a guest of an unknown VM that is to end.
  const rt::String& remove() const { return remove_; }
  void removeIs(const rt::String& guest) { assign<&VmIntent::remove>(remove_, guest); }

  static constexpr std::string_view typeName = "model::VmIntent";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmIntent::name>,
                         rt::Attribute<"restart", &VmIntent::restart, &VmIntent::restartIs>,
                         rt::Attribute<"remove", &VmIntent::remove, &VmIntent::removeIs>>;

 private:
  const rt::String name_;
  uint64_t restart_ = 0;
  rt::String remove_;
};

}  // namespace model
