// State machines: the objects with handlers.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace rt {

class StateMachine;

// Something that calls handlers of a state machine: a reactor, a clock reactor. Owned by its
// machine, as a data member.
class HandlerSource : public ReactorLink {
 public:
  // Off: what would be told is dropped. On from construction.
  bool hasNotificationActive() const { return !(mutes_ & inactive); }
  void hasNotificationActiveIs(bool active) { muteIs(inactive, !active); }

  // A source that is marked for deletion calls no handler.
  bool deletionMark() const { return mutes_ & deleted; }
  void deletionMarkIs(bool mark) { muteIs(deleted, mark); }

 protected:
  HandlerSource(Dispatch dispatch, StateMachine& owner);
  ~HandlerSource();

  // No more calls: leaves what it watches. That stays readable until the machine has gone, so a
  // handler whose machine is dropped meanwhile may finish its sentence.
  virtual void detach() = 0;

  // The machine, or null when no handler may be called.
  StateMachine* listener() const { return mutes_ == 0 ? owner_ : nullptr; }

 private:
  friend class StateMachine;
  enum Mute : uint8_t { inactive = 1, deleted = 2 };
  void muteIs(Mute mute, bool on) {
    mutes_ = static_cast<uint8_t>(on ? mutes_ | mute : mutes_ & ~mute);
  }

  StateMachine* owner_;  // null once the machine has retired
  HandlerSource* next_;  // of the same machine
  uint8_t mutes_ = 0;
};

// Base of the machines, by way of StateMachineOf.
class StateMachine : public Entity {
 public:
  // Of the machine and of its sources alike.
  void hasNotificationActiveIs(bool active) override;

  // Detaches all sources for good: no handler starts after this. Whoever removes the machine from
  // an attribute need not call it; mutators do, and so does the end of the last reference.
  void retire();

  // Called by the owner's mutator that removes this machine.
  void handleRemoval() override { retire(); }

 protected:
  // The machine's sources are detached before anything of it is destroyed.
  void handleZeroReferences() override;
  // The machine's last act before its sources are detached, when its last reference has gone.
  virtual void handleEnd() {}

 private:
  friend class HandlerSource;
  HandlerSource* sources_ = nullptr;
  bool retired_ = false;  // sources made from now on call no handler
};

// Base of the state machine class T, which is an entity class as well: it has `typeName` and
// `Attributes`, its table lists `rt::Attribute<"initialized", &T::initialized>`.
//
// The constructor ends by calling handleInitialized(), which does its work once:
//
//   void LampSm::handleInitialized() {
//     if (initialized()) return;
//     initializedIs(true);
//     ...
//   }
template <class T>
class StateMachineOf : public EntityOf<T, StateMachine> {
 public:
  bool initialized() const { return initialized_; }

 protected:
  void initializedIs(bool initialized) {
    this->template assign<&T::initialized>(initialized_, initialized);
  }

 private:
  bool initialized_ = false;
};

}  // namespace rt
