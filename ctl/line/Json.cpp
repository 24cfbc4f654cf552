#include "ctl/line/Json.h"

#include <jansson.h>

#include <algorithm>
#include <cstdlib>

#include "runtime/base/Format.h"
#include "runtime/base/VisibleText.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

std::shared_ptr<json_t> owned(json_t* value) {
  return {value, [](json_t* v) { json_decref(v); }};
}

constexpr size_t indentation = 2;

}  // namespace

std::optional<JsonValue> JsonValue::parse(std::string_view text, rt::String* error) {
  json_error_t wrong;
  json_t* const value = json_loadb(text.empty() ? "" : text.data(), text.size(),
                                   JSON_DECODE_ANY | JSON_REJECT_DUPLICATES, &wrong);
  if (value) return JsonValue(owned(value));
  if (error) *error = rt::format("line %d, column %d: %s", wrong.line, wrong.column, wrong.text);
  return std::nullopt;
}

JsonValue JsonValue::shared(json_t* borrowed) { return JsonValue(owned(json_incref(borrowed))); }

bool JsonValue::isObject() const { return json_is_object(value_.get()); }
bool JsonValue::isArray() const { return json_is_array(value_.get()); }

std::optional<JsonValue> JsonValue::member(const char* name) const {
  json_t* const found = json_object_get(value_.get(), name);
  return found ? std::optional(shared(found)) : std::nullopt;
}

std::optional<rt::String> JsonValue::text(const char* name) const {
  const json_t* const found = json_object_get(value_.get(), name);
  if (!json_is_string(found)) return std::nullopt;
  return rt::String(json_string_value(found), json_string_length(found));
}

std::optional<int64_t> JsonValue::number(const char* name) const {
  const json_t* const found = json_object_get(value_.get(), name);
  if (!json_is_integer(found)) return std::nullopt;
  return json_integer_value(found);
}

std::optional<bool> JsonValue::boolean(const char* name) const {
  const json_t* const found = json_object_get(value_.get(), name);
  if (!json_is_boolean(found)) return std::nullopt;
  return json_is_true(found);
}

std::vector<rt::String> JsonValue::names() const {
  std::vector<rt::String> names;
  names.reserve(json_object_size(value_.get()));
  for (void* at = json_object_iter(value_.get()); at; at = json_object_iter_next(value_.get(), at))
    names.emplace_back(json_object_iter_key(at));
  return names;
}

std::vector<JsonValue> JsonValue::elements() const {
  std::vector<JsonValue> elements;
  const size_t size = json_array_size(value_.get());
  elements.reserve(size);
  for (size_t i = 0; i < size; ++i) elements.push_back(shared(json_array_get(value_.get(), i)));
  return elements;
}

rt::String JsonValue::dump() const {
  char* const text = json_dumps(value_.get(), JSON_COMPACT | JSON_ENCODE_ANY);
  const std::unique_ptr<char, decltype(&std::free)> release(text, &std::free);
  return text ? text : "";
}

bool isUtf8(std::string_view text) {
  return text.empty() || owned(json_stringn(text.data(), text.size())) != nullptr;
}

rt::String quoted(std::string_view text) { return statedb::quoted(text); }

rt::String onTerminal(std::string_view json) {
  if (std::all_of(json.begin(), json.end(), [](char c) { return c >= 0x20 && c < 0x7f; }))
    return json;
  rt::String out;
  while (!json.empty()) {
    const size_t length = rt::characterLength(json);
    const std::string_view character = json.substr(0, std::max<size_t>(length, 1));
    const auto last = static_cast<unsigned char>(character.back());
    const bool isLongControl = length == 2 && character[0] == '\xc2' && last < 0xa0;
    if (length == 0)
      out += "\\ufffd";
    else if (isLongControl || last == 0x7f)
      out += rt::format("\\u%04x", last);
    else
      out += rt::visibleText(character, "\n");
    json.remove_prefix(character.size());
  }
  return out;
}

rt::String indented(std::string_view document) {
  const rt::String compact = onTerminal(document);
  rt::String out;
  size_t depth = 0;
  bool inText = false;
  const auto newLine = [&] { (out += '\n') += std::string(depth * indentation, ' '); };
  for (size_t i = 0; i < compact.size(); ++i) {
    const char c = compact[i];
    if (inText) {
      out += c;
      if (c == '\\') out += compact[++i];
      inText = c != '"';
      continue;
    }
    const bool isEmpty = i + 1 < compact.size() && (compact[i + 1] == '}' || compact[i + 1] == ']');
    inText = c == '"';
    if ((c == '{' || c == '[') && isEmpty) {
      (out += c) += compact[++i];
      continue;
    }
    if (c == '}' || c == ']') {
      --depth;
      newLine();
    }
    out += c;
    if (c == '{' || c == '[') ++depth;
    if (c == '{' || c == '[' || c == ',') newLine();
    if (c == ':') out += ' ';
  }
  return out += '\n';
}

}  // namespace ctl
