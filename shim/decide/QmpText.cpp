#include "shim/decide/QmpText.h"

#include <jansson.h>

#include <algorithm>
#include <memory>

#include "runtime/base/Release.h"
#include "runtime/base/VisibleText.h"

namespace shim::qmp {

namespace {

using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

// What QEMU nests is a few levels deep; what a peer nests thousands deep would use up the stack of
// whoever reads it after us. jansson itself ends at 2048.
constexpr int deepest = 64;

bool isFlat(std::string_view text) {
  int depth = 0;
  bool inString = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString && c == '\\')
      ++i;
    else if (c == '"')
      inString = !inString;
    else if (!inString && (c == '{' || c == '['))
      ++depth;
    else if (!inString && (c == '}' || c == ']'))
      --depth;
    if (depth > deepest) return false;
  }
  return true;
}

// A QEMU may be the guest's, and make a sentence of any length.
std::string forPeople(const std::string& description) {
  if (description.size() <= longestDescription) return description;
  const std::string begin = description.substr(0, longestDescription);
  return begin.substr(0, begin.size() - rt::unfinishedLength(begin)) + "...";
}

// A whole text that is one JSON object; null for any other.
JsonPtr objectFrom(std::string_view text) {
  if (!isFlat(text)) return nullptr;
  JsonPtr root(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, nullptr));
  return json_is_object(root.get()) ? std::move(root) : nullptr;
}

std::string textOf(const json_t* value, size_t flags) {
  if (!value) return {};
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(value, flags | JSON_ENCODE_ANY),
                                                    std::free);
  return text ? text.get() : "";
}

// As QEMU writes it: a blank behind each colon and comma.
std::string asQemuWrites(const json_t* value) { return textOf(value, 0); }
// QEMU reads its monitor a byte at a time, with all else it does in between.
std::string compact(const json_t* value) { return textOf(value, JSON_COMPACT); }

// Whether the text, of an object, is a "return" as QEMU writes it and nothing else.
constexpr std::string_view returnHead = "{\"return\": ";
bool isAlone(const json_t* object, std::string_view text) {
  return json_object_size(object) == 1 && text.starts_with(returnHead) && text.back() == '}';
}
// What it returns, as it stands there: to write it anew costs more than to read it.
std::string inside(std::string_view text) {
  return std::string(text.substr(returnHead.size(), text.size() - returnHead.size() - 1));
}

std::string stringOf(const json_t* value) {
  return json_is_string(value) ? std::string(json_string_value(value), json_string_length(value))
                               : std::string();
}

std::optional<uint64_t> numberOf(const json_t* value) {
  if (!json_is_integer(value) || json_integer_value(value) < 0) return std::nullopt;
  return static_cast<uint64_t>(json_integer_value(value));
}

std::map<std::string, std::string> textsOf(json_t* object) {
  std::map<std::string, std::string> texts;
  for (void* at = json_object_iter(object); at; at = json_object_iter_next(object, at))
    if (const json_t* const value = json_object_iter_value(at); json_is_string(value))
      texts[json_object_iter_key(at)] = stringOf(value);
  return texts;
}

}  // namespace

std::optional<Request> requestFrom(std::string_view text) {
  const JsonPtr root = objectFrom(text);
  if (!root || !json_is_string(json_object_get(root.get(), "execute"))) return std::nullopt;
  json_t* const arguments = json_object_get(root.get(), "arguments");
  Request request;
  request.execute = stringOf(json_object_get(root.get(), "execute"));
  const json_t* const id = json_object_get(root.get(), "id");
  request.id = json_is_string(id) ? qmp::quoted(stringOf(id)) : asQemuWrites(id);
  request.arguments = compact(arguments);
  request.texts = textsOf(arguments);
  request.up = json_is_true(json_object_get(arguments, "up"));
  return request;
}

std::optional<Saying> sayingFrom(std::string_view text) {
  const JsonPtr root = objectFrom(text);
  if (!root) return std::nullopt;
  Saying saying;
  saying.id = numberOf(json_object_get(root.get(), "id"));
  if (const json_t* const error = json_object_get(root.get(), "error")) {
    saying.kind = Saying::Kind::refusal;
    saying.value = asQemuWrites(error);
    saying.description = forPeople(stringOf(json_object_get(error, "desc")));
  } else if (const json_t* const result = json_object_get(root.get(), "return")) {
    saying.kind = Saying::Kind::result;
    saying.value = isAlone(root.get(), text) ? inside(text) : asQemuWrites(result);
  } else if (json_object_get(root.get(), "QMP")) {
    saying.kind = Saying::Kind::greeting;
  } else if (const json_t* const event = json_object_get(root.get(), "event")) {
    json_t* const data = json_object_get(root.get(), "data");
    const json_t* const byGuest = json_object_get(data, "guest");
    saying.event = stringOf(event);
    saying.texts = textsOf(data);
    if (json_is_boolean(byGuest)) saying.byGuest = json_is_true(byGuest);
  } else {
    return std::nullopt;
  }
  return saying;
}

std::string versionFrom(std::string_view greeting) {
  const JsonPtr root = objectFrom(greeting);
  const json_t* version = json_object_get(root.get(), "QMP");
  for (const char* const name : {"version", "qemu"}) version = json_object_get(version, name);
  std::string text;
  for (const char* const part : {"major", "minor", "micro"}) {
    const auto number = numberOf(json_object_get(version, part));
    if (!number) return {};
    text += (text.empty() ? "" : ".") + std::to_string(*number);
  }
  return text;
}

std::string requestLine(std::string_view execute, std::string_view arguments,
                        std::optional<uint64_t> id) {
  std::string line = "{\"execute\":" + quoted(execute);
  if (!arguments.empty()) line.append(",\"arguments\":").append(arguments);
  if (id) line.append(",\"id\":").append(std::to_string(*id));
  return line + "}\n";
}

std::string returnLine(std::string_view id, std::string_view value) {
  return "{\"return\": " + std::string(value) + ", \"id\": " + std::string(id) + "}\r\n";
}

std::string refusalLine(std::string_view id, std::string_view value) {
  return "{\"id\": " + std::string(id) + ", \"error\": " + std::string(value) + "}\r\n";
}

std::string errorLine(std::string_view id, std::string_view description) {
  return refusalLine(id, R"({"class": "GenericError", "desc": )" + quoted(description) + "}");
}

std::string quoted(std::string_view text) {
  const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) {
    return c >= ' ' && c < 0x7f && c != '"' && c != '\\';
  });
  if (isPlain) return std::string(1, '"').append(text).append(1, '"');
  const JsonPtr value(json_stringn(text.data(), text.size()));
  return value ? asQemuWrites(value.get()) : "\"\"";
}

size_t screenViewers(const std::string& servers) {
  const JsonPtr root(json_loadb(servers.data(), servers.size(), 0, nullptr));
  size_t viewers = 0;
  for (size_t i = 0; i < json_array_size(root.get()); ++i)
    viewers += json_array_size(json_object_get(json_array_get(root.get(), i), "clients"));
  return viewers;
}

std::string withFileNames(const std::string& chardevs,
                          const std::map<std::string, std::string>& namesByLabel) {
  const JsonPtr root(json_loadb(chardevs.data(), chardevs.size(), 0, nullptr));
  if (!json_is_array(root.get())) return "[]";
  // From the end on, for what is taken out.
  for (size_t i = json_array_size(root.get()); i-- > 0;) {
    json_t* const device = json_array_get(root.get(), i);
    const std::string label = stringOf(json_object_get(device, "label"));
    const auto isOurs = [&](const auto& each) { return label.starts_with(each.first); };
    const auto found = namesByLabel.find(label);
    if (found != namesByLabel.end())
      json_object_set_new(device, "filename",
                          json_stringn(found->second.data(), found->second.size()));
    else if (std::any_of(namesByLabel.begin(), namesByLabel.end(), isOurs))
      json_array_remove(root.get(), i);
  }
  return asQemuWrites(root.get());
}

}  // namespace shim::qmp
