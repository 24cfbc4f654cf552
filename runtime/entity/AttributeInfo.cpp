#include "runtime/entity/AttributeInfo.h"

#include "runtime/entity/Entity.h"

namespace rt {

namespace {

const AttributeInfo& scalarOf(const Entity& entity, std::string_view attribute) {
  const TypeInfo& type = entity.type();
  const AttributeInfo* info = type.find(attribute);
  if (!info) {
    String known;
    for (const auto& each : type.attributes) {
      if (!known.empty()) known += ", ";
      known += each.name;
    }
    throw AttributeException(String(type.name) + " has no attribute '" + String(attribute) +
                             "'; it has " + known);
  }
  if (info->kind != AttributeKind::scalar)
    throw AttributeException(String(type.name) + "." + info->name +
                             " is no scalar: it is of kind " + toText(info->kind));
  return *info;
}

}  // namespace

const AttributeInfo* TypeInfo::find(std::string_view attribute) const {
  for (const auto& each : attributes)
    if (each.name == attribute) return &each;
  return nullptr;
}

String attributeText(const Entity& entity, std::string_view attribute) {
  return scalarOf(entity, attribute).text(entity);
}

void attributeTextIs(Entity& entity, std::string_view attribute, std::string_view text) {
  const AttributeInfo& info = scalarOf(entity, attribute);
  if (!info.textIs)
    throw AttributeException(String(entity.type().name) + "." + info.name + " is read-only");
  info.textIs(entity, text);
}

void refuseText(std::string_view type, std::string_view attribute, std::string_view valueType,
                std::string_view text) {
  throw AttributeException(String(type) + "." + String(attribute) + ": '" + String(text) +
                           "' is no value of type " + String(valueType));
}

}  // namespace rt
