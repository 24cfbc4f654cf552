// The entity types that a process knows, by name.
#pragma once

#include <map>
#include <span>
#include <string_view>

#include "runtime/entity/EntityOf.h"

namespace rt {

// Filled while libraries are loaded: each module has one RegisteredTypes object.
class TypeRegistry {
 public:
  // Exception when another type has that name already; the same one again changes nothing.
  void typeIs(const TypeInfo& type);
  // Null when no such type was registered.
  const TypeInfo* type(std::string_view name) const;

 private:
  std::map<std::string_view, const TypeInfo*> types_;
};

// The process's one registry.
TypeRegistry& typeRegistry();

// Registers its types with the process when it is constructed, at load.
template <class... T>
struct RegisteredTypes {
  RegisteredTypes() { (typeRegistry().typeIs(typeInfo<T>), ...); }
};

}  // namespace rt
