// Which kernel device each interface of the switch is.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "host/base/HostStatus.h"
#include "runtime/entity/Reactor.h"
#include "runtime/records/Interface.h"
#include "statedb/StateDb.h"

namespace host {

// Names every device of the kernel that can be a switch's interface by its own name, but for what
// the configuration says; and shows which interfaces there are.
//
//   row           | device of that name | the interface
//   none          | none                | is not one
//   none          | there               | is that device
//   a device name | any                 | is the device of that name, there or not
//   refused       | any                 | is what it was
class InterfaceNames final : public rt::StateMachineOf<InterfaceNames> {
 public:
  // `withdrawing` is called before an interface loses a device that the kernel has.
  using Withdrawing = std::function<void(const rt::String& id)>;
  // Of an interface, what an earlier daemon had written.
  struct Before {
    bool present = false;
    bool carrier = false;
    uint64_t since = 0;
  };
  // `now`: the time of day, in seconds since 1970.
  InterfaceNames(Interface::AllIntfStatusLocalDir::Ptr localDir, HostStatus::Ptr status,
                 Interface::DeviceIntfStatusDir::PtrConst present, Withdrawing withdrawing,
                 std::function<uint64_t()> now, std::map<rt::String, Before> before = {});
  // Is told of each interface that is there, is not any more, or has another carrier.
  using Listener = std::function<void(const rt::String& id)>;
  void listenerIs(Listener listener) { listener_ = std::move(listener); }

  // A row of the configuration; nothing: there is none.
  void rowIs(const rt::String& id, const std::optional<rt::String>& doc);
  // A device that the kernel has. To be called before the device is told of and after it is told
  // gone, so that whoever hears of the device knows its interface.
  void deviceIs(const rt::String& device);
  void deviceDel(const rt::String& device);
  // Whether a device has a carrier: of each, known or not. At first, none has.
  void carrierIs(const rt::String& device, bool hasCarrier);
  // All others have heard of the device, or that it is gone. To be called then: one that throws
  // keeps those behind it from hearing, us too.
  void deviceIsTold(const rt::String& device);
  // All devices there are were told of: what is so from now on is no earlier daemon's any more.
  void hasBegun() { before_.clear(); }
  // A device that goes on under another name; called before anything is told.
  void deviceLeaves(const rt::String& device);
  // Tells the agent that the interface went and came, as it would of a device that did.
  void flap(const rt::String& id);

  static constexpr std::string_view typeName = "host::InterfaceNames";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &InterfaceNames::initialized>>;

 private:
  void handleInitialized();
  void handlePresent(const rt::IntfId& id);
  void update(const rt::String& id);
  void show(const rt::String& id, const rt::String& device, const rt::String& problem);
  uint64_t sinceOf(const model::InterfaceStatus& record) const;

  const Interface::AllIntfStatusLocalDir::Ptr localDir_;
  const HostStatus::Ptr status_;
  const Withdrawing withdrawing_;
  const std::function<uint64_t()> now_;
  std::map<rt::String, Before> before_;
  Listener listener_ = [](const auto&) {};
  std::map<rt::String, rt::String> configured_;  // id -> device
  std::map<rt::String, rt::String> refused_;     // id -> why
  std::set<rt::String> devices_;
  std::set<rt::String> carriers_;  // devices that have one
  bool isFlapping_ = false;

  rt::Reactor<InterfaceNames, const Interface::DeviceIntfStatusDir,
              rt::On<&Interface::DeviceIntfStatusDir::intfStatusAndDeviceName,
                     &InterfaceNames::handlePresent>>
      present_;
};

}  // namespace host
