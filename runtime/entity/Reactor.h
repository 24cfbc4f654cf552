// Typed dispatch of an entity's changes to a state machine's handlers.
//
//   class LampSm final : public rt::StateMachineOf<LampSm> {
//     ...
//     rt::Reactor<LampSm, const Switch, rt::On<&Switch::pressed, &LampSm::handlePressed>> switch_;
//   };
#pragma once

#include "runtime/entity/StateMachine.h"

namespace rt {

// In a Reactor: when the attribute of `getter` changes, call `handler`, which takes nothing or, for
// a collection, the key.
template <auto getter, auto handler>
struct On {
  template <class Sm>
  static void call(Sm& machine, const void* key) {
    if constexpr (std::is_invocable_v<decltype(handler), Sm&>)
      (machine.*handler)();
    else
      (machine.*handler)(*static_cast<const typename GetterOf<getter>::Key*>(key));
  }
  template <class T>
  static constexpr AttributeIndex index = T::Attributes::template indexOf<getter>;
};

// Tells `Sm` of changes in the `T` it is attached to, and is how `Sm` reads it. Declare reactors
// as the machine's last data members: then they are there only while the rest is.
//
// Which handler an attribute has is a table made at compile time; telling one reactor is a load
// and an indirect call.
template <class Sm, class T, class... Bindings>
class Reactor final : public HandlerSource {
 public:
  explicit Reactor(Sm& owner, Ptr<T> notifier = nullptr) : HandlerSource(dispatch, owner) {
    notifierIs(std::move(notifier));
  }
  ~Reactor() { unlink(); }  // before the reference goes, which may be the entity's last

  T* operator->() const { return notifier_.get(); }
  explicit operator bool() const { return notifier_ != nullptr; }
  const Ptr<T>& notifier() const { return notifier_; }
  // Leaves the entity it was attached to and attaches itself to `notifier`, if that is not null.
  void notifierIs(Ptr<T> notifier) {
    unlink();
    const Ptr<T> old = std::exchange(notifier_, std::move(notifier));
    if (notifier_) notifier_->reactorIs(*this);
  }
  bool registered() const { return linked(); }

 private:
  using Call = void (*)(Sm&, const void* key);
  using Attributes = typename T::Attributes;

  static constexpr auto table() {
    std::array<Call, Attributes::size> calls{};
    [[maybe_unused]] constexpr auto uses = []([[maybe_unused]] AttributeIndex index) {
      return (0 + ... + (Bindings::template index<T> == index));
    };
    static_assert(((uses(Bindings::template index<T>) == 1) && ...),
                  "one attribute has two handlers in this reactor");
    ((calls[Bindings::template index<T>] = Bindings::template call<Sm>), ...);
    return calls;
  }

  static void dispatch(ReactorLink& link, const Change& change) {
    static constexpr auto calls = table();
    // An attribute of a class that extends T is none of ours.
    if (change.attribute >= calls.size()) return;
    const Call call = calls[change.attribute];
    if (!call) return;
    auto& self = static_cast<Reactor&>(link);
    StateMachine* const machine = self.listener();
    if (!machine || self.notifier_->deletionMark()) return;
    const Ptr<StateMachine> alive(machine);  // the handler may have its own machine dropped
    call(static_cast<Sm&>(*machine), change.key);
  }

  void detach() override { unlink(); }

  Ptr<T> notifier_;
};

// Tells `Sm` of every change of an entity of any type: `void handler(const Entity&, const
// Change&)`. For generic code, such as a store that mirrors entities.
template <class Sm, auto handler>
class AnyReactor final : public HandlerSource {
 public:
  explicit AnyReactor(Sm& owner, Ptr<const Entity> notifier = nullptr)
      : HandlerSource(dispatch, owner) {
    notifierIs(std::move(notifier));
  }
  ~AnyReactor() { unlink(); }

  const Ptr<const Entity>& notifier() const { return notifier_; }
  void notifierIs(Ptr<const Entity> notifier) {
    unlink();
    const Ptr<const Entity> old = std::exchange(notifier_, std::move(notifier));
    if (notifier_) notifier_->reactorIs(*this);
  }

 private:
  static void dispatch(ReactorLink& link, const Change& change) {
    auto& self = static_cast<AnyReactor&>(link);
    StateMachine* const machine = self.listener();
    if (!machine || self.notifier_->deletionMark()) return;
    const Ptr<StateMachine> alive(machine);
    const Ptr<const Entity> entity = self.notifier_;
    (static_cast<Sm&>(*machine).*handler)(*entity, change);
  }

  void detach() override { unlink(); }

  Ptr<const Entity> notifier_;
};

}  // namespace rt
