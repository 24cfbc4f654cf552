// What a card's link may do: a model beside the agent, for a world with one VM and one card.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "Vm/VmAgent/Vnic.h"

namespace Vm::fakes {

enum class LinkEvent { connect, disconnect, response, error, timeOut, disable, enable };
inline constexpr int linkEvents = 7;
inline constexpr const char* linkEventNames[] = {"connect", "disconnect", "response", "error",
                                                 "timeOut", "disable",    "enable"};

using Transition = std::pair<Vnic::LinkStatus, Vnic::LinkStatus>;
// All that there are.
inline const std::set<Transition> linkTable = {{Vnic::linkUninitialized, Vnic::linkDown},
                                               {Vnic::linkDown, Vnic::linkGoingUp},
                                               {Vnic::linkGoingUp, Vnic::linkUp},
                                               {Vnic::linkUp, Vnic::linkGoingDown},
                                               {Vnic::linkGoingDown, Vnic::linkDown}};

// Says what is to be so after each event. An answer that is lost (an error, a time-out) never
// comes: the link then stays as it is until the VM is switched off.
struct LinkModel {
  bool enabled = false;
  bool present = false;  // the interface
  Vnic::LinkStatus status = Vnic::linkUninitialized;
  bool downPending = false;
  bool answerDue = false;  // a command is with QEMU

  bool tapOpen() const {
    return enabled && (status == Vnic::linkGoingUp || status == Vnic::linkUp);
  }
  bool commandPending() const {
    return enabled && (status == Vnic::linkGoingUp || status == Vnic::linkGoingDown);
  }

  void handle(LinkEvent event) {
    switch (event) {
      case LinkEvent::connect:
        present = true;
        if (enabled && status == Vnic::linkDown) attach();
        return;
      case LinkEvent::disconnect:
        present = false;
        if (!enabled) return;
        if (status == Vnic::linkGoingUp) downPending = true;
        if (status == Vnic::linkUp) detach();
        return;
      case LinkEvent::response:
        if (std::exchange(answerDue, false)) answered();
        return;
      case LinkEvent::error:
      case LinkEvent::timeOut:
        answerDue = false;
        return;
      case LinkEvent::disable:
        enabled = false;
        answerDue = false;
        return;
      case LinkEvent::enable:
        if (std::exchange(enabled, true)) return;
        downPending = false;
        attach();
        return;
    }
  }

 private:
  void attach() {
    status = present ? Vnic::linkGoingUp : Vnic::linkDown;
    answerDue = present;
  }
  void detach() {
    status = Vnic::linkGoingDown;
    downPending = false;
    answerDue = true;
  }
  void answered() {
    if (status == Vnic::linkGoingUp) {
      status = Vnic::linkUp;
      if (downPending) detach();
    } else {
      status = Vnic::linkDown;
      if (present) attach();
    }
  }
};

}  // namespace Vm::fakes
