// The clock, and the reactors it wakes.
#pragma once

#include <vector>

#include "runtime/base/FirstException.h"
#include "runtime/base/Seconds.h"
#include "runtime/entity/EntityOf.h"
#include "runtime/entity/StateMachine.h"

namespace rt {

class WakeUp;

// A source of time, and the wake-ups set on it. The activity manager runs a pass over those that
// are due after each look at the descriptors.
class Clock : public EntityOf<Clock> {
 public:
  ~Clock() override;

  virtual Seconds now() const = 0;
  // How long, in real time, a loop may sleep before a pass finds something to do.
  virtual Seconds untilNextPass() const;

  // Wakes, in the order of their times, those that are due now and were set before this began, each
  // once. Returns early, leaving the rest to the next pass, when `tired` says so after a handler.
  // An exception of a handler goes to `failures`, and the pass goes on.
  template <class Tired>
  void pass(Tired tired, FirstException& failures) {
    collectDue();
    bool woken = true;
    while (woken) {
      failures.run([&] { woken = wakeNext(); });
      if (woken && tired()) return;
    }
  }

  static constexpr std::string_view typeName = "rt::Clock";
  using Attributes = AttributeTable<Attribute<"now", &Clock::now>>;

 protected:
  Clock() = default;
  // The earliest time that a wake-up is set for; infinity when there is none.
  Seconds nextWakeUp() const;

 private:
  friend class WakeUp;
  void arm(WakeUp& wakeUp);
  void disarm(WakeUp& wakeUp);
  void collectDue();
  bool wakeNext();
  void place(size_t index, WakeUp* wakeUp);
  void siftUp(size_t index);
  void siftDown(size_t index);

  std::vector<WakeUp*> heap_;  // the earliest first; of equal times, the one set first
  std::vector<WakeUp*> due_;   // collected by the pass, the next to be woken last; null: disarmed
  uint64_t nextOrder_ = 0;
};

// CLOCK_MONOTONIC.
class SteadyClock final : public Clock {
 public:
  Seconds now() const override;
};

// One time to be woken at. Base of the clock reactors.
class WakeUp : public HandlerSource {
 public:
  // The wake-up time, absolute on the clock; 0 at first.
  Seconds timeMin() const { return time_; }
  // The handler runs once when the clock has reached `time`, also when that is the same time as
  // before or in the past; then this is silent until it is set again.
  void timeMinIs(Seconds time);

  const Ptr<Clock>& notifier() const { return clock_; }
  // Another clock than before: registers there and runs the handler once, at once.
  void notifierIs(Ptr<Clock> clock);

 protected:
  // Registers with `clock`, if that is not null, with wake-up time 0: its first pass wakes it.
  WakeUp(StateMachine& owner, Ptr<Clock> clock);
  ~WakeUp() { disarm(); }
  virtual void call(StateMachine& machine) = 0;

 private:
  friend class Clock;
  enum class State : uint8_t { silent, armed, due };

  void detach() override { disarm(); }
  void arm();
  void disarm();
  void wake();

  Ptr<Clock> clock_;
  Seconds time_{0};
  uint64_t order_ = 0;
  size_t index_ = 0;  // in the clock's heap or list of due ones
  State state_ = State::silent;
};

// Calls `handler` of `Sm` at the wake-up time.
template <class Sm, auto handler>
class ClockReactor final : public WakeUp {
 public:
  explicit ClockReactor(Sm& owner, Ptr<Clock> clock = nullptr) : WakeUp(owner, std::move(clock)) {}

 private:
  void call(StateMachine& machine) override { (static_cast<Sm&>(machine).*handler)(); }
};

}  // namespace rt
