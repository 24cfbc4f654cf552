#include "runtime/entity/TypeRegistry.h"

#include <algorithm>

namespace rt {

namespace {

bool sameAttribute(const AttributeInfo& a, const AttributeInfo& b) {
  return a.name == b.name && a.kind == b.kind && a.valueType == b.valueType &&
         a.keyType == b.keyType;
}

// The same class has one table in each library that uses it where symbols are bound locally, so
// tables are compared by what is in them.
bool sameType(const TypeInfo& a, const TypeInfo& b) {
  return std::equal(a.attributes.begin(), a.attributes.end(), b.attributes.begin(),
                    b.attributes.end(), sameAttribute);
}

}  // namespace

void TypeRegistry::typeIs(const TypeInfo& type) {
  const auto [at, added] = types_.try_emplace(type.name, &type);
  if (!added && !sameType(*at->second, type))
    throw Exception("two different entity types are named " + String(type.name));
}

const TypeInfo* TypeRegistry::type(std::string_view name) const {
  const auto found = types_.find(name);
  return found == types_.end() ? nullptr : found->second;
}

TypeRegistry& typeRegistry() {
  // Made on first use, because libraries register while they are loaded; never destroyed, because
  // nothing in the process may have effects at its exit.
  static auto& registry = *new TypeRegistry;
  return registry;
}

}  // namespace rt
