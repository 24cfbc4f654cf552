// The reading half of EntityDocument, apart because it alone knows a JSON library.
#pragma once

#include <string_view>
#include <vector>

#include "runtime/base/Problem.h"
#include "runtime/entity/Entity.h"

namespace statedb {

// Whether documents have a field for the attribute: whether generic code can write all of it.
inline bool isField(const rt::AttributeInfo& attribute) {
  const bool hasMutator = attribute.textIs || attribute.memberIs || attribute.memberTextIs;
  const bool isCollection =
      attribute.kind == rt::AttributeKind::entities || attribute.kind == rt::AttributeKind::values;
  return hasMutator && (attribute.memberDel || !isCollection);
}

// Writes what can be read of the document to `scratch`, a fresh record, and adds all that cannot to
// `problems`. False when there is no object to read at all.
bool readDocument(std::string_view json, rt::Entity& scratch, std::vector<rt::Problem>& problems);

}  // namespace statedb
