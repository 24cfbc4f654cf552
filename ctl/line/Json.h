// Small JSON documents. The records of VMs are read and written by statedb/EntityDocument.h.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "runtime/base/String.h"

struct json_t;

namespace ctl {

// A part of a document that was read. Copies share it.
class JsonValue {
 public:
  // `error` gets the place and what is wrong when there is no value.
  static std::optional<JsonValue> parse(std::string_view text, rt::String* error = nullptr);

  bool isObject() const;
  bool isArray() const;
  // A member of an object; nothing when there is none, or it is of another kind.
  std::optional<JsonValue> member(const char* name) const;
  std::optional<rt::String> text(const char* name) const;
  std::optional<int64_t> number(const char* name) const;
  std::optional<bool> boolean(const char* name) const;
  // Of an object, in the document's order.
  std::vector<rt::String> names() const;
  // Of an array.
  std::vector<JsonValue> elements() const;
  // Compact, in the document's order.
  rt::String dump() const;

 private:
  explicit JsonValue(std::shared_ptr<json_t> value) : value_(std::move(value)) {}
  static JsonValue shared(json_t* borrowed);

  std::shared_ptr<json_t> value_;
};

// The text as a JSON string. Bytes that are no UTF-8 become U+FFFD.
rt::String quoted(std::string_view text);
bool isUtf8(std::string_view text);
// A compact document over several lines, for people, with a line feed at the end. As onTerminal().
rt::String indented(std::string_view document);
// The same document, in which all is UTF-8 and is shown as it is: control characters and marks of
// direction are escaped.
rt::String onTerminal(std::string_view json);

}  // namespace ctl
