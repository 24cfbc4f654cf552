// The text form of the monitor's plain values:
// "Value('TYPE', ** {'FIELD': VALUE, 'FIELD': VALUE})".
#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/base/String.h"

namespace Vm {

using FieldText = std::pair<std::string_view, rt::String>;  // name and value
rt::String valueText(std::string_view type, std::initializer_list<FieldText> fields);

// What a field's value may look like: whether `text` is a value of its type.
struct FieldForm {
  std::string_view name;
  bool (*accepts)(std::string_view text);
};
// The fields' values in `text`, or nothing when it is not such a form. Values stand in it as they
// are; where that leaves a choice, earlier fields are as short as they can be.
std::optional<std::vector<std::string_view>> fieldsFromValueText(std::string_view type,
                                                                 std::span<const FieldForm> fields,
                                                                 std::string_view text);

}  // namespace Vm
