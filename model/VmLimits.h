// A row of vmLimits: what of the machine a VM's guest may take.
#pragma once

#include "model/Processors.h"
#include "runtime/base/Problem.h"
#include "runtime/entity/EntityOf.h"

namespace model {

// Of two guests that want all, one of twice the weight gets twice as much.
constexpr uint32_t leastWeight = 1;
constexpr uint32_t mostWeight = 10'000;
constexpr uint32_t usualWeight = 100;

// Written by operators. In force at once, also for a guest that runs. A VM without a row has what a
// new record has.
class VmLimits final : public rt::EntityOf<VmLimits> {
 public:
  explicit VmLimits(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }  // the VM's

  // Its share of the processors that guests have, where they do not suffice.
  uint32_t cpuWeight() const { return cpuWeight_; }
  void cpuWeightIs(uint32_t weight) { assign<&VmLimits::cpuWeight>(cpuWeight_, weight); }

  // As many processors it gets at most, though others are idle; none: as many as it wants.
  const Processors& cpuMax() const { return cpuMax_; }
  void cpuMaxIs(const Processors& processors) { assign<&VmLimits::cpuMax>(cpuMax_, processors); }

  // What its QEMU may take beside what one of its kind is known to take, in mebibytes.
  uint32_t memoryReserve() const { return memoryReserve_; }
  void memoryReserveIs(uint32_t mebibytes) {
    assign<&VmLimits::memoryReserve>(memoryReserve_, mebibytes);
  }

  // Its share of what disks can do, where that does not suffice.
  uint32_t ioWeight() const { return ioWeight_; }
  void ioWeightIs(uint32_t weight) { assign<&VmLimits::ioWeight>(ioWeight_, weight); }

  // What each of its cards may send, in millions of bits a second; 0: all that it can.
  uint32_t rateLimit() const { return rateLimit_; }
  void rateLimitIs(uint32_t megabits) { assign<&VmLimits::rateLimit>(rateLimit_, megabits); }

  static constexpr std::string_view typeName = "model::VmLimits";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &VmLimits::name>,
      rt::Attribute<"cpuWeight", &VmLimits::cpuWeight, &VmLimits::cpuWeightIs>,
      rt::Attribute<"cpuMax", &VmLimits::cpuMax, &VmLimits::cpuMaxIs>,
      rt::Attribute<"memoryReserve", &VmLimits::memoryReserve, &VmLimits::memoryReserveIs>,
      rt::Attribute<"ioWeight", &VmLimits::ioWeight, &VmLimits::ioWeightIs>,
      rt::Attribute<"rateLimit", &VmLimits::rateLimit, &VmLimits::rateLimitIs>>;

 private:
  const rt::String name_;
  uint32_t cpuWeight_ = usualWeight;
  Processors cpuMax_;
  uint32_t memoryReserve_ = 0;
  uint32_t ioWeight_ = usualWeight;
  uint32_t rateLimit_ = 0;
};

// What would be right, when a value is not.
std::optional<rt::String> weightRight(uint32_t value);
std::optional<rt::String> cpuMaxRight(const Processors& value);
std::optional<rt::String> rateLimitRight(uint32_t value);
std::optional<rt::String> memoryReserveRight(uint32_t value, uint32_t memoryOfMachine);

}  // namespace model
