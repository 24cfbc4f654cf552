// A row of vmPolicy: what is done for a VM without being asked.
#pragma once

#include <array>
#include <string_view>

#include "runtime/base/Problem.h"
#include "runtime/entity/EntityOf.h"

namespace model {

namespace restart {

// Whether a VM that is to run is started again when its guest has ended.
inline constexpr std::string_view no = "no";
inline constexpr std::string_view onFailure = "on-failure";  // not one that shut itself down
inline constexpr std::string_view always = "always";

}  // namespace restart

inline constexpr std::array restarts{restart::no, restart::onFailure, restart::always};

// Written by operators. In force at once. A VM without a row has what a new record has.
class VmPolicy final : public rt::EntityOf<VmPolicy> {
 public:
  explicit VmPolicy(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }  // the VM's

  // One of restarts.
  const rt::String& restart() const { return restart_; }
  void restartIs(const rt::String& value) { assign<&VmPolicy::restart>(restart_, value); }

  static constexpr std::string_view typeName = "model::VmPolicy";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmPolicy::name>,
                         rt::Attribute<"restart", &VmPolicy::restart, &VmPolicy::restartIs>>;

 private:
  const rt::String name_;
  rt::String restart_{restart::no};
};

// What would be right, when `value` is not.
inline std::optional<rt::String> restartRight(std::string_view value) {
  for (const std::string_view each : restarts)
    if (each == value) return std::nullopt;
  return "must be no, on-failure or always";
}

}  // namespace model
