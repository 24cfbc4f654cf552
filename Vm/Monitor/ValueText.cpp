#include "Vm/Monitor/ValueText.h"

namespace Vm {

namespace {

rt::String opening(std::string_view type) {
  return rt::String("Value('") + rt::String(type) + "', ** {";
}

// Splits `text`, which starts with the first field's value, into the values of all fields.
bool split(std::span<const FieldForm> fields, std::string_view text,
           std::vector<std::string_view>& values) {
  const bool last = fields.size() == 1;
  const rt::String behind = last ? rt::String("})") : ", '" + rt::String(fields[1].name) + "': ";
  for (size_t at = text.find(behind); at != std::string_view::npos;
       at = text.find(behind, at + 1)) {
    const auto value = text.substr(0, at);
    const auto rest = text.substr(at + behind.size());
    if (!fields[0].accepts(value) || (last && !rest.empty())) continue;
    values.push_back(value);
    if (last || split(fields.subspan(1), rest, values)) return true;
    values.pop_back();
  }
  return false;
}

}  // namespace

rt::String valueText(std::string_view type, std::initializer_list<FieldText> fields) {
  rt::String text = opening(type);
  const char* separator = "";
  for (const auto& [name, value] : fields) {
    text += separator;
    text += "'";
    text += name;
    text += "': ";
    text += value;
    separator = ", ";
  }
  return text += "})";
}

std::optional<std::vector<std::string_view>> fieldsFromValueText(std::string_view type,
                                                                 std::span<const FieldForm> fields,
                                                                 std::string_view text) {
  const rt::String start = opening(type) + "'" + rt::String(fields[0].name) + "': ";
  std::vector<std::string_view> values;
  if (!text.starts_with(start)) return std::nullopt;
  if (!split(fields, text.substr(start.size()), values)) return std::nullopt;
  return values;
}

}  // namespace Vm
