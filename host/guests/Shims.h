// The guests' shims, as the daemon has to do with them.
#pragma once

#include <functional>
#include <optional>
#include <set>

#include "host/state/GuestEvent.h"
#include "runtime/base/Seconds.h"
#include "runtime/entity/Entity.h"
#include "runtime/net/EthAddr.h"
#include "statedb/Record.h"

namespace host {

// How long a shim takes at most to end a guest whose time to shut itself down is over.
constexpr rt::Seconds shimsOwn{8};

// All that the daemon sees of shims, and says to them. Waits for none of them. Owned by the daemon,
// for the length of its run.
class Shims {
 public:
  struct Sinks {
    // Is told what is wrong with a VM's guest; empty: nothing.
    std::function<void(const rt::String& vm, const rt::String& problem)> problem;
    // Is told what happened to a guest, of each VM in its order and once.
    std::function<void(const GuestEvent& event)> event;
  };

  virtual ~Shims() = default;

  // Whether a shim tells its QEMU what a disk image is. Else QEMU goes by the image's first bytes.
  virtual bool tellFormats() const = 0;

  // Has the VM's guest shut itself down, and ended when its time is up, the usual one unless
  // another is named; false when there is nobody to ask. One that was asked already gets no more
  // time than it has.
  virtual bool askToStop(const rt::String& vm, std::optional<rt::Seconds> time) = 0;
  // Tells the VM's guest of which row it is now. A shim of before takes no notice.
  virtual void rowIs(const rt::String& vm, const statedb::Origin& row) = 0;
  // Tells the VM's guest whether the line of the card with that address is up: it sees a carrier
  // where the agent has one for it, too. False when there is nobody to tell. A shim of before takes
  // no notice.
  virtual bool lineIs(const rt::String& vm, rt::EthAddr card, bool isUp) = 0;
  // Whether the VM's guest has a shim that can drive it; one that stands still is there, too.
  virtual bool isThere(const rt::String& vm) const = 0;

  // Returns what the VM's QEMU said last before it ended by itself; empty when it did not, or said
  // nothing.
  virtual rt::String lastError(const rt::String& vm) const = 0;
  // Forgets that. To be called before a start of the VM: it would else be taken for the word of a
  // shim that cannot be executed.
  virtual void lastErrorDel(const rt::String& vm) = 0;

  // Returns what is wrong with the VM's guest, as far as its shim can see; empty: nothing. What a
  // shim that was killed has left is still told: who has the guest must know better.
  virtual rt::String problem(const rt::String& vm) const = 0;
  // Tells of each VM's problem and events, those that are known still and those to come, as long as
  // what is returned lives. ErrnoException when that cannot be followed. To be called once.
  virtual rt::Ptr<const rt::Entity> follow(Sinks sinks) = 0;
  // Tells at once what the VM's shim has told of and was not told yet.
  virtual void catchUp(const rt::String& vm) = 0;

  // Removes the sockets of a VM without a process, which a shim has left that was killed. One that
  // somebody listens at, or that is no socket, stays.
  virtual void removeDeadSockets(const rt::String& vm) = 0;
  // The same of all VMs that ever had a guest, but for those that have one.
  virtual void removeDeadSocketsOfAllBut(const std::set<rt::String>& living) = 0;
};

// Where guests have none: QEMU itself is started, and ends when it is told to.
class NoShims final : public Shims {
 public:
  bool tellFormats() const override { return false; }
  bool askToStop(const rt::String& /*vm*/, std::optional<rt::Seconds> /*time*/) override {
    return false;
  }
  void rowIs(const rt::String& /*vm*/, const statedb::Origin& /*row*/) override {}
  bool lineIs(const rt::String& /*vm*/, rt::EthAddr /*card*/, bool /*isUp*/) override {
    return true;  // and nothing ever does
  }
  bool isThere(const rt::String& /*vm*/) const override { return false; }
  rt::String lastError(const rt::String& /*vm*/) const override { return {}; }
  void lastErrorDel(const rt::String& /*vm*/) override {}
  rt::String problem(const rt::String& /*vm*/) const override { return {}; }
  rt::Ptr<const rt::Entity> follow(Sinks /*sinks*/) override { return nullptr; }
  void catchUp(const rt::String& /*vm*/) override {}
  void removeDeadSockets(const rt::String& /*vm*/) override {}
  void removeDeadSocketsOfAllBut(const std::set<rt::String>& /*living*/) override {}
};

}  // namespace host
