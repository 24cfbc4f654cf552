#include "runtime/entity/TypeRegistry.h"

namespace rt {

void TypeRegistry::typeIs(const TypeInfo& type) {
  const auto [at, added] = types_.try_emplace(type.name, &type);
  // The same class has one table in each library that uses it where symbols are bound locally, so
  // the size is compared as well as the address.
  if (!added && at->second != &type && at->second->attributes.size() != type.attributes.size())
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
