// How generic code sees entities: their types and attributes, by name, as text.
//
// The state database and the tests use nothing else. Every write goes through the public mutator,
// so what a class guarantees holds whoever writes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "runtime/base/Exception.h"
#include "runtime/base/Text.h"
#include "runtime/entity/Ptr.h"

namespace rt {

class Entity;

enum class AttributeKind : uint8_t {
  scalar,    // one value
  entity,    // a reference to another entity, or null
  entities,  // a keyed collection of entities
  values,    // a keyed collection of plain values
};
constexpr EnumNames<4> enumNames(AttributeKind) {
  return {"scalar", "entity", "entities", "values"};
}

// One attribute of a type. Functions that do not apply to its kind, or that the type does not
// offer, are null. Those that take text throw AttributeException when it is refused, and change
// nothing then.
struct AttributeInfo {
  std::string_view name;
  AttributeKind kind;
  std::string_view valueType;  // of the scalar or of the members
  std::string_view keyType;    // of a collection
  ValueForm form;

  String (*text)(const Entity&) = nullptr;              // scalar
  void (*textIs)(Entity&, std::string_view) = nullptr;  // scalar with a mutator

  Ptr<Entity> (*entity)(const Entity&) = nullptr;  // entity

  String (*keyText)(const void* key) = nullptr;          // the key of a change, for collections
  std::vector<String> (*keys)(const Entity&) = nullptr;  // all keys in order, for collections
  Ptr<Entity> (*member)(const Entity&, std::string_view key) = nullptr;  // entities; null if absent
  String (*memberText)(const Entity&, std::string_view key) = nullptr;   // values; empty if absent
  // Values: writes the member; null where the collection takes no key beside the value.
  void (*memberTextIs)(Entity&, std::string_view key, std::string_view text) = nullptr;
  // Entities: makes the member under `key`, lets `fill` write to it and only then tells reactors of
  // it. Where there is one already, that is filled.
  Ptr<Entity> (*memberIs)(Entity&, std::string_view key,
                          const std::function<void(Entity&)>& fill) = nullptr;
  void (*memberDel)(Entity&, std::string_view key) = nullptr;  // collections with a deleter
};

struct TypeInfo {
  std::string_view name;
  std::span<const AttributeInfo> attributes;
  // For records: a new one, with all its defaults, made for the same key as `other` and mounted
  // nowhere. Null when the type needs more than a key.
  Ptr<Entity> (*fresh)(const Entity& other) = nullptr;

  // Null when the type has no attribute of that name.
  const AttributeInfo* find(std::string_view attribute) const;
};

// Reads or writes one scalar by name. AttributeException when the name is unknown, no scalar or
// read-only, or when `text` is no value of the attribute's type; it names all of these.
String attributeText(const Entity& entity, std::string_view attribute);
void attributeTextIs(Entity& entity, std::string_view attribute, std::string_view text);

// For the tables below: throws AttributeException for `text`.
[[noreturn]] void refuseText(std::string_view type, std::string_view attribute,
                             std::string_view valueType, std::string_view text);

}  // namespace rt
