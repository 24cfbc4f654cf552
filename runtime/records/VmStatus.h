// What is so: the state of each VM as the agent reports it. Written by the agent only.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace Vm {

class VmStatus final : public rt::EntityOf<VmStatus> {
 public:
  explicit VmStatus(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }

  // The agent's view of whether the VM is switched on; compared with the configuration's.
  bool enabled() const { return enabled_; }
  void enabledIs(bool enabled) { assign<&VmStatus::enabled>(enabled_, enabled); }

  // "Starting", "Running" or "Stopped"; empty before the first start.
  const rt::String& state() const { return state_; }
  void stateIs(const rt::String& state) { assign<&VmStatus::state>(state_, state); }

  // Path of the serial console's pseudo-terminal; empty until it is known.
  const rt::String& consolePtyPath() const { return consolePtyPath_; }
  void consolePtyPathIs(const rt::String& path) {
    assign<&VmStatus::consolePtyPath>(consolePtyPath_, path);
  }

  // The outcome of the last monitor command, for the operator; emptied when a switch on or off
  // begins.
  const rt::String& cmdStatusStr() const { return cmdStatusStr_; }
  void cmdStatusStrIs(const rt::String& text) {
    assign<&VmStatus::cmdStatusStr>(cmdStatusStr_, text);
  }

  static constexpr std::string_view typeName = "Vm::VmStatus";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &VmStatus::name>,
      rt::Attribute<"enabled", &VmStatus::enabled, &VmStatus::enabledIs>,
      rt::Attribute<"state", &VmStatus::state, &VmStatus::stateIs>,
      rt::Attribute<"consolePtyPath", &VmStatus::consolePtyPath, &VmStatus::consolePtyPathIs>,
      rt::Attribute<"cmdStatusStr", &VmStatus::cmdStatusStr, &VmStatus::cmdStatusStrIs>>;

 private:
  const rt::String name_;
  bool enabled_ = false;
  rt::String state_;
  rt::String consolePtyPath_;
  rt::String cmdStatusStr_;
};

// The status root: one record per VM, under the name of its configuration.
class Status final : public rt::EntityOf<Status> {
 public:
  using VmStatuses = rt::Collection<rt::String, VmStatus::Ptr>;

  const VmStatuses& vmStatuses() const { return vmStatus_; }
  VmStatus::Ptr vmStatus(const rt::String& name) const;
  bool vmStatusHas(const rt::String& name) const { return vmStatus_.has(name); }
  VmStatus::Ptr vmStatusIs(const rt::String& name);
  void vmStatusMount(const VmStatus::Ptr& vm);  // filled before it is told of
  VmStatus::Ptr vmStatusDel(const rt::String& name);
  void vmStatusDelAll();

  static constexpr std::string_view typeName = "Vm::Status";
  using Attributes =
      rt::AttributeTable<rt::CollectionAttribute<"vmStatus", &Status::vmStatus, &Status::vmStatuses,
                                                 &Status::vmStatusMount, &Status::vmStatusDel>>;

 private:
  VmStatuses vmStatus_;
};

}  // namespace Vm
