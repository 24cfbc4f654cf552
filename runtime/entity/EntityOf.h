// How an entity class is written.
//
//   // What is so of one lamp. Written by LampSm.
//   class Lamp final : public rt::EntityOf<Lamp> {
//    public:
//     explicit Lamp(rt::String name) : name_(std::move(name)) {}
//
//     const rt::String& name() const { return name_; }
//
//     bool lit() const { return lit_; }
//     void litIs(bool lit) { assign<&Lamp::lit>(lit_, lit); }
//
//     static constexpr std::string_view typeName = "House::Lamp";
//     using Attributes = rt::AttributeTable<rt::Attribute<"name", &Lamp::name>,
//                                           rt::Attribute<"lit", &Lamp::lit, &Lamp::litIs>>;
//
//    private:
//     const rt::String name_;
//     bool lit_ = false;
//   };
#pragma once

#include <concepts>

#include "runtime/entity/Attribute.h"
#include "runtime/entity/Collection.h"
#include "runtime/entity/Entity.h"

namespace rt {

// TypeInfo::fresh. A record's constructor takes nothing, or the attribute that its table lists
// first.
template <class T>
constexpr auto freshOf() -> decltype(TypeInfo::fresh) {
  using Key = typename T::Attributes::template KeyOf<T>;
  if constexpr (std::is_default_constructible_v<T>)
    return [](const Entity&) -> Ptr<Entity> { return make<T>(); };
  else if constexpr (std::is_constructible_v<T, Key>)
    return [](const Entity& other) -> Ptr<Entity> {
      return make<T>(T::Attributes::keyOf(static_cast<const T&>(other)));
    };
  else
    return nullptr;
}

template <class T>
inline constexpr TypeInfo typeInfo{T::typeName, T::Attributes::template infos<T>, freshOf<T>()};

// Base of the entity class T, which has `typeName` and `Attributes`. `Base` is Entity, StateMachine
// or another entity class that T extends.
template <class T, class Base = Entity>
class EntityOf : public Base {
 public:
  using Ptr = rt::Ptr<T>;
  using PtrConst = rt::Ptr<const T>;

  const TypeInfo& type() const override { return typeInfo<T>; }

 protected:
  using Base::Base;
  ~EntityOf() override { this->checkNoReactors(T::typeName); }

  // The mutators' work. Each stores first, then tells the reactors.

  // A scalar or a reference: tells only when `value` differs from what is there.
  template <auto getter, class Field, class Value>
  void assign(Field& field, Value&& value) {
    if (field == value) return;
    if constexpr (isPtr<Field>) {
      const Field old = std::exchange(field, value);  // ends, if it does, after it is told of
      tell<getter>();
    } else {
      field = std::forward<Value>(value);
      tell<getter>();
    }
  }

  // Removes an entity that this one owns; returns it, or null when there was none.
  template <auto getter, class M>
  rt::Ptr<M> drop(rt::Ptr<M>& field) {
    rt::Ptr<M> old = std::exchange(field, nullptr);
    if (!old) return nullptr;
    old->handleRemoval();
    tell<getter>();
    return old;
  }

  // Tells of a change that was stored otherwise, or that is one without a new value.
  template <auto getter>
  void tell(const void* key = nullptr) {
    this->notify({attributeIndex<getter>, key});
  }

  // The member under `key`; made from `args` when there is none.
  template <auto getter, class K, class M, class... Args>
  rt::Ptr<M> instantiate(Collection<K, rt::Ptr<M>>& members, const K& key, Args&&... args) {
    if (const auto* old = members.find(key)) return *old;
    auto made = make<M>(std::forward<Args>(args)...);
    store<getter>(members, key, made);
    return made;
  }

  // Adds a member that was filled before, under the key that `keyGetter` reads from it.
  // NullArgumentException for null, ReinstantiationException when another has that key.
  template <auto getter, auto keyGetter, class K, class M>
  void mount(Collection<K, rt::Ptr<M>>& members, const rt::Ptr<M>& member) {
    if (!member) throw NullArgumentException(T::typeName, attributeInfo<getter>().name);
    const auto* old = members.find(((*member).*keyGetter)());
    if (old && *old != member)
      throw ReinstantiationException(T::typeName, attributeInfo<getter>().name);
    if (!old) store<getter>(members, ((*member).*keyGetter)(), member);
  }

  // The member under `key` becomes `member`; tells only when it differs from what is there.
  template <auto getter, class K, class S>
  void store(Collection<K, S>& members, const K& key, const std::type_identity_t<S>& member) {
    const auto [at, added] = members.members_.try_emplace(key, member);
    if (!added) {
      if (at->second == member) return;
      const S old = std::exchange(at->second, member);
      tell<getter>(&key);
      return;
    }
    tell<getter>(&key);
  }

  // Takes the member under `key` out and returns it; a default value (null) when there is none.
  template <auto getter, class K, class S>
  S remove(Collection<K, S>& members, const K& key) {
    const auto at = members.members_.find(key);
    if (at == members.members_.end()) return S();
    const auto node = members.extract(at);
    if constexpr (isPtr<S>) node->mapped()->handleRemoval();
    tell<getter>(&node->key());
    return node->mapped();
  }

  template <auto getter, class K, class S>
  void removeAll(Collection<K, S>& members) {
    for (const auto& [key, member] : members) remove<getter>(members, key);
  }

 private:
  template <auto getter>
  static constexpr AttributeIndex attributeIndex = T::Attributes::template indexOf<getter>;
  template <auto getter>
  static const AttributeInfo& attributeInfo() {
    return typeInfo<T>.attributes[attributeIndex<getter>];
  }
};

// For a creating mutator that finds its attribute or member there already: ReinstantiationException
// unless what it was made from equals what is asked for now.
template <class T, auto getter, class Value>
void requireSame(const T& existing, const Value& asked) {
  if ((existing.*getter)() == asked) return;
  throw ReinstantiationException(
      T::typeName, typeInfo<T>.attributes[T::Attributes::template indexOf<getter>].name);
}

}  // namespace rt
