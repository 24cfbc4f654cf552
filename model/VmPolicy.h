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

namespace followed {

// What a card's line is in the guest, while its interface has no carrier.
inline constexpr std::string_view follow = "follow";  // down, as that one's
inline constexpr std::string_view up = "up";

}  // namespace followed

constexpr uint32_t mostStartOrder = 9999;
constexpr uint32_t mostStartDelay = 3600;

inline constexpr std::array restarts{restart::no, restart::onFailure, restart::always};
inline constexpr std::array links{followed::follow, followed::up};

// Written by operators. In force at once. A VM without a row has what a new record has.
class VmPolicy final : public rt::EntityOf<VmPolicy> {
 public:
  explicit VmPolicy(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }  // the VM's

  // One of restarts.
  const rt::String& restart() const { return restart_; }
  void restartIs(const rt::String& value) { assign<&VmPolicy::restart>(restart_, value); }

  // Its number in the order in which VMs are started when the daemon begins; 0: after all others.
  uint32_t startOrder() const { return startOrder_; }
  void startOrderIs(uint32_t number) { assign<&VmPolicy::startOrder>(startOrder_, number); }

  // Seconds that the next one of that order waits once it was started.
  uint32_t startDelay() const { return startDelay_; }
  void startDelayIs(uint32_t seconds) { assign<&VmPolicy::startDelay>(startDelay_, seconds); }

  // One of links.
  const rt::String& link() const { return link_; }
  void linkIs(const rt::String& value) { assign<&VmPolicy::link>(link_, value); }

  static constexpr std::string_view typeName = "model::VmPolicy";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &VmPolicy::name>,
      rt::Attribute<"restart", &VmPolicy::restart, &VmPolicy::restartIs>,
      rt::Attribute<"startOrder", &VmPolicy::startOrder, &VmPolicy::startOrderIs>,
      rt::Attribute<"startDelay", &VmPolicy::startDelay, &VmPolicy::startDelayIs>,
      rt::Attribute<"link", &VmPolicy::link, &VmPolicy::linkIs>>;

 private:
  const rt::String name_;
  rt::String restart_{restart::no};
  uint32_t startOrder_ = 0;
  uint32_t startDelay_ = 0;
  rt::String link_{followed::follow};
};

// What would be right, when `value` is not.
inline std::optional<rt::String> startOrderRight(uint32_t value) {
  if (value <= mostStartOrder) return std::nullopt;
  return "must be 1 to 9999, or 0 for after all others";
}

inline std::optional<rt::String> startDelayRight(uint32_t value) {
  if (value <= mostStartDelay) return std::nullopt;
  return "must be 0 to 3600 (seconds)";
}

inline std::optional<rt::String> restartRight(std::string_view value) {
  for (const std::string_view each : restarts)
    if (each == value) return std::nullopt;
  return "must be no, on-failure or always";
}

inline std::optional<rt::String> linkRight(std::string_view value) {
  for (const std::string_view each : links)
    if (each == value) return std::nullopt;
  return "must be follow or up";
}

}  // namespace model
