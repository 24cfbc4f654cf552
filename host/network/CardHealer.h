// Cards that are cut off from their interfaces.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "host/base/Problems.h"
#include "host/base/TraceLog.h"
#include "host/guests/VmCards.h"
#include "host/network/CardMover.h"
#include "host/network/Healing.h"
#include "host/network/InterfaceNames.h"
#include "host/network/Janitor.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"

namespace host {

// The agent attaches a card when its interface comes, once. Somebody may delete the device of a
// card later or switch it off, or it may not have been possible to make it, or QEMU's answer was
// lost: then the guest goes on without a network. So when anything is heard of devices, interfaces
// or a VM's machine, the cards of the guests that run are looked at, a moment later and together.
// One that its interface is there for, and that has no device there which is up, is sick; it is
// attached anew when its Healing says so, as if its interface had gone and come, and while that is
// in vain, it is the VM's problem. One that is configured to be on another interface is moved
// there. When all are well, nothing is set on the clock.
class CardHealer final : public rt::StateMachineOf<CardHealer>, public VmCards {
 public:
  struct Tools {
    rt::Ptr<const rt::Entity> agent;  // the root
    Interface::DeviceIntfStatusDir::PtrConst present;
    InterfaceNames::Ptr interfaces;
    Janitor& janitor;
    Problems& problems;
    TraceLog& traces;
    std::function<std::vector<Tap>()> taps;  // one look at the kernel's
    // See CardMover.
    std::function<rt::String(const rt::String& vm, rt::EthAddr address)> wanted;
  };
  // What comes together is looked at once, so long after the first of it.
  static constexpr rt::Seconds lookDelay{1};
  // After that, where the kernel does not answer.
  static constexpr rt::Seconds retryDelay{5};

  CardHealer(Tools tools, rt::Clock::Ptr clock);

  void switchingOff(const rt::String& vm) override { tools_.janitor.switchingOff(vm); }
  void switchedOff(const rt::String& vm) override { tools_.janitor.switchedOff(vm); }
  void changed(const rt::String& vm) override;
  void tookUp(const rt::String& /*vm*/) override { tools_.janitor.sweep(); }
  void guestLeaves(const rt::String& vm, int32_t pid) override {
    tools_.janitor.guestLeaves(vm, nodesHeldBy(pid));
  }
  void guestLeft(const rt::String& vm) override { tools_.janitor.guestLeft(vm); }
  // Something was heard of a device.
  void devicesChanged();
  // The VM's row is another: its cards are moved where they are configured to be.
  void configured(const rt::String& vm);

  // Once a pass of the loop. Cures at most one card, which may take long, and returns whether there
  // is more to do at once.
  bool pass();

  static constexpr std::string_view typeName = "host::CardHealer";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &CardHealer::initialized>>;

 private:
  struct Patient {
    Healing healing;
    rt::String failure;   // of the last cure
    rt::String obstacle;  // a stranger's device on its interface that has its address
  };
  // A VM with a guest that runs, or that is to be looked at.
  struct Ward {
    rt::Seconds lookAt = rt::Seconds::infinity();
    std::map<rt::EthAddr, Patient> patients;  // by the card's address
  };
  using Wards = std::map<rt::String, Ward>;

  void handleInitialized();
  void handlePresent(const rt::IntfId& /*id*/) { devicesChanged(); }
  void handleClock() { isDue_ = true; }
  void setClock();
  void lookSoonAt(Ward& ward);
  bool dropWithoutCards(const rt::String& vm);
  bool lookAt(const rt::String& vm, const std::vector<Tap>& taps);
  CardState stateOf(const Card& card, const rt::Entity& machine,
                    const std::vector<Tap>& taps) const;
  uint32_t deviceOf(const rt::String& interface) const;
  bool move(const rt::String& vm, const Card& card, const rt::String& goal) const;
  void cure(const rt::String& vm, const Card& card, Patient& patient);
  rt::String attachAnew(const rt::String& vm, const Card& card) const;
  rt::String obstacleTo(const Card& card, const std::vector<Tap>& taps) const;

  const Tools tools_;
  const CardMover mover_;
  Wards wards_;
  bool isDue_ = false;
  bool complained_ = false;  // of a kernel that does not answer

  rt::Reactor<
      CardHealer, const Interface::DeviceIntfStatusDir,
      rt::On<&Interface::DeviceIntfStatusDir::intfStatusAndDeviceName, &CardHealer::handlePresent>>
      present_;
  rt::ClockReactor<CardHealer, &CardHealer::handleClock> clock_;
};

}  // namespace host
