// The table of an entity class's attributes.
//
// An attribute is identified by its getter everywhere: the same `&VmStatus::state` names it in the
// class's table, in its mutator and in a reactor, and the compiler checks all three.
#pragma once

#include <algorithm>
#include <array>
#include <tuple>
#include <type_traits>

#include "runtime/entity/AttributeInfo.h"
#include "runtime/entity/Collection.h"
#include "runtime/entity/Entity.h"

namespace rt {

// A string literal as a template argument.
template <size_t size>
struct Name {
  consteval Name(const char (&literal)[size]) { std::copy_n(literal, size, text); }
  constexpr operator std::string_view() const { return {text, size - 1}; }
  char text[size];
};

// What a getter tells of its attribute: the class it is of, what it returns, and its key if any.
template <class>
struct GetterType;
template <class C, class R, class... K>
struct GetterType<R (C::*)(K...) const> {
  using Class = C;
  using Result = std::remove_cvref_t<R>;
  using Key = std::remove_cvref_t<std::tuple_element_t<0, std::tuple<K..., void*>>>;
  static constexpr bool keyed = sizeof...(K) == 1;
};
template <auto getter>
struct GetterOf : GetterType<decltype(getter)> {};  // getters compare as these types, see below

template <auto function>
inline constexpr bool given = !std::is_null_pointer_v<decltype(function)>;

// The whole of `text` as a V; AttributeException when it is none.
template <class V>
V valueFromText(std::string_view type, std::string_view attribute, std::string_view text) {
  auto value = fromText<V>(text);
  if (!value) refuseText(type, attribute, valueTypeName<V>(), text);
  return *std::move(value);
}

// A value or a reference to an entity. Without a mutator it is read-only to generic access.
template <Name name, auto getter, auto mutator = nullptr>
struct Attribute {
  static constexpr std::string_view attributeName = name;
  // g++ 12 takes no two member addresses for constants inside their class, but types compare.
  template <auto other>
  static constexpr bool is = std::is_same_v<GetterOf<getter>, GetterOf<other>>;

  // What the attribute is when nobody but the constructor sets it: the key of a record.
  template <class T>
  static auto keyOf(const T& entity) {
    if constexpr (!given<mutator>) return (entity.*getter)();
  }

  template <class T>
  static constexpr AttributeInfo info() {
    using Value = typename GetterOf<getter>::Result;
    AttributeInfo info{};
    info.name = name;
    if constexpr (isPtr<Value>) {
      using Target = std::remove_const_t<typename Value::Pointee>;
      info.kind = AttributeKind::entity;
      info.valueType = Target::typeName;
      info.entity = [](const Entity& entity) -> Ptr<Entity> {
        return Ptr<Entity>(const_cast<Target*>((static_cast<const T&>(entity).*getter)().get()));
      };
    } else {
      info.kind = AttributeKind::scalar;
      info.valueType = valueTypeName<Value>();
      info.form = valueForm<Value>();
      info.text = [](const Entity& entity) {
        return toText((static_cast<const T&>(entity).*getter)());
      };
      if constexpr (given<mutator>)
        info.textIs = [](Entity& entity, std::string_view text) {
          (static_cast<T&>(entity).*mutator)(valueFromText<Value>(T::typeName, name, text));
        };
    }
    return info;
  }
};

// A keyed collection. `getter` returns the member under a key (null, or nothing, when absent),
// `walker` the Collection. `mounter` takes a member that was filled before or, for plain values, a
// key and a value; it and `deleter` may be left out for collections that generic code only reads.
template <Name name, auto getter, auto walker, auto mounter = nullptr, auto deleter = nullptr>
struct CollectionAttribute {
  static constexpr std::string_view attributeName = name;
  template <auto other>
  static constexpr bool is = std::is_same_v<GetterOf<getter>, GetterOf<other>>;

  template <class T>
  static void keyOf(const T&) {}  // a collection is no key

  template <class T>
  static constexpr AttributeInfo info() {
    using Members = typename GetterOf<walker>::Result;
    using Key = typename Members::Key;
    using Stored = typename Members::Stored;
    AttributeInfo info{};
    info.name = name;
    info.keyType = valueTypeName<Key>();
    info.keyText = [](const void* key) { return toText(*static_cast<const Key*>(key)); };
    info.keys = [](const Entity& entity) {
      std::vector<String> keys;
      for (const auto& [key, member] : (static_cast<const T&>(entity).*walker)())
        keys.push_back(toText(key));
      return keys;
    };
    if constexpr (isPtr<Stored>) {
      entities<T, Key, typename Stored::Pointee>(info);
    } else {
      info.kind = AttributeKind::values;
      info.valueType = valueTypeName<Stored>();
      info.memberText = [](const Entity& entity, std::string_view key) {
        const Stored* member = (static_cast<const T&>(entity).*walker)().find(
            valueFromText<Key>(T::typeName, name, key));
        return member ? toText(*member) : String();
      };
      if constexpr (given<mounter>)
        info.memberTextIs = [](Entity& entity, std::string_view key, std::string_view text) {
          const auto typedKey = valueFromText<Key>(T::typeName, name, key);
          (static_cast<T&>(entity).*mounter)(typedKey,
                                             valueFromText<Stored>(T::typeName, name, text));
        };
    }
    if constexpr (given<deleter>)
      info.memberDel = [](Entity& entity, std::string_view key) {
        (static_cast<T&>(entity).*deleter)(valueFromText<Key>(T::typeName, name, key));
      };
    return info;
  }

 private:
  template <class T, class Key, class Member>
  static constexpr void entities(AttributeInfo& info) {
    info.kind = AttributeKind::entities;
    info.valueType = Member::typeName;
    info.member = [](const Entity& entity, std::string_view key) -> Ptr<Entity> {
      const auto* member = (static_cast<const T&>(entity).*walker)().find(
          valueFromText<Key>(T::typeName, name, key));
      return member ? Ptr<Entity>(*member) : nullptr;
    };
    if constexpr (given<mounter>)
      info.memberIs = [](Entity& entity, std::string_view text,
                         const std::function<void(Entity&)>& fill) -> Ptr<Entity> {
        const Key key = valueFromText<Key>(T::typeName, name, text);
        if (const auto* old = (static_cast<const T&>(entity).*walker)().find(key)) {
          Ptr<Entity> member(*old);
          fill(*member);
          return member;
        }
        auto member = make<Member>(key);
        fill(*member);
        (static_cast<T&>(entity).*mounter)(member);
        return member;
      };
  }
};

// All attributes of a class. A class that extends another lists that one's table first, so that a
// reactor on the base class fits the derived one.
template <class... A>
struct AttributeTable {
  static constexpr size_t size = sizeof...(A);
  static_assert(
      [](auto... names) {
        std::array<std::string_view, size> all{names...};
        std::sort(all.begin(), all.end());
        return std::adjacent_find(all.begin(), all.end()) == all.end();
      }(A::attributeName...),
      "two attributes have the same name");

  template <auto getter>
  static constexpr AttributeIndex indexOf = [] {
    static_assert((A::template is<getter> || ...), "this getter is not in the class's Attributes");
    AttributeIndex index = 0;
    (void)((A::template is<getter> || (++index, false)) || ...);
    return index;
  }();

  template <class T>
  static constexpr std::array<AttributeInfo, size> infos{A::template info<T>()...};

  template <class T>
  using KeyOf =
      decltype(std::tuple_element_t<0, std::tuple<A...>>::keyOf(std::declval<const T&>()));
  template <class T>
  static auto keyOf(const T& entity) {
    return std::tuple_element_t<0, std::tuple<A...>>::keyOf(entity);
  }
};

}  // namespace rt
