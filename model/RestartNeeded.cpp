#include "model/RestartNeeded.h"

#include <algorithm>

#include "model/VmFields.h"
#include "runtime/entity/Entity.h"

namespace model {

namespace {

bool isSame(const rt::Entity& a, const rt::Entity& b);

bool isSame(const rt::AttributeInfo& attribute, const rt::Entity& a, const rt::Entity& b) {
  if (attribute.kind == rt::AttributeKind::scalar) return attribute.text(a) == attribute.text(b);
  const std::vector<rt::String> keys = attribute.keys(a);
  return keys == attribute.keys(b) && std::all_of(keys.begin(), keys.end(), [&](const auto& key) {
           return isSame(*attribute.member(a, key), *attribute.member(b, key));
         });
}

bool isCardsAndAtOnce(const rt::AttributeInfo& attribute) {
  const VmField* const field = cardFieldNamed(attribute.name);
  return field && field->takesEffectAtOnce;
}

// Of cards, as the members of a VM are.
bool isSame(const rt::Entity& a, const rt::Entity& b) {
  const auto attributes = a.type().attributes;
  return std::all_of(attributes.begin(), attributes.end(), [&](const auto& attribute) {
    return isCardsAndAtOnce(attribute) || isSame(attribute, a, b);
  });
}

bool takesEffectAtOnce(const rt::AttributeInfo& attribute) {
  const VmField* const field = vmFieldNamed(attribute.name);
  return field && field->takesEffectAtOnce;
}

}  // namespace

std::vector<std::string_view> fieldsForNextStart(const Vm::VmConfig& before,
                                                 const Vm::VmConfig& after) {
  std::vector<std::string_view> fields;
  if (&before == &after) return fields;
  for (const rt::AttributeInfo& attribute : before.type().attributes)
    if (!takesEffectAtOnce(attribute) && !isSame(attribute, before, after))
      fields.push_back(attribute.name);
  return fields;
}

bool needsRestart(const AskedFor& before, const AskedFor& after) {
  if (!before.vm.enabled() || !after.vm.enabled()) return false;
  return before.format != after.format || !fieldsForNextStart(before.vm, after.vm).empty();
}

}  // namespace model
