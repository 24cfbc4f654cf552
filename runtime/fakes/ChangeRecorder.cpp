#include "runtime/fakes/ChangeRecorder.h"

namespace rt::fakes {

void ChangeRecorder::handleChange(const Entity& entity, const Change& change) {
  const AttributeInfo& attribute = entity.type().attributes[change.attribute];
  String line = String(entity.type().name) + "." + attribute.name;
  if (change.key) line += "[" + attribute.keyText(change.key) + "]";
  if (attribute.text) line += " = " + attribute.text(entity);
  changes_.push_back(line.str());
}

}  // namespace rt::fakes
