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

  // The last of these is of a guest that has ended: one that runs goes on.
  bool ifEnded() const { return ifEnded_; }
  void ifEndedIs(bool ifEnded) { assign<&VmIntent::ifEnded>(ifEnded_, ifEnded); }

  // How many stops were asked for that had a time of their own.
  uint64_t stop() const { return stop_; }
  void stopIs(uint64_t number) { assign<&VmIntent::stop>(stop_, number); }

  // How many seconds the guest gets to shut itself down, of the stop or restart that was asked for
  // last; 0: it is switched off at once; -1: as the daemon has it.
  int32_t within() const { return within_; }
  void withinIs(int32_t seconds) { assign<&VmIntent::within>(within_, seconds); }

  // The name of a guest of an unknown VM that is to end.
  const rt::String& remove() const { return remove_; }
  void removeIs(const rt::String& guest) { assign<&VmIntent::remove>(remove_, guest); }

  static constexpr std::string_view typeName = "model::VmIntent";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmIntent::name>,
                         rt::Attribute<"restart", &VmIntent::restart, &VmIntent::restartIs>,
                         rt::Attribute<"ifEnded", &VmIntent::ifEnded, &VmIntent::ifEndedIs>,
                         rt::Attribute<"stop", &VmIntent::stop, &VmIntent::stopIs>,
                         rt::Attribute<"within", &VmIntent::within, &VmIntent::withinIs>,
                         rt::Attribute<"remove", &VmIntent::remove, &VmIntent::removeIs>>;

 private:
  const rt::String name_;
  uint64_t restart_ = 0;
  bool ifEnded_ = false;
  uint64_t stop_ = 0;
  int32_t within_ = -1;
  rt::String remove_;
};

}  // namespace model
