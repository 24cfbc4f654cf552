#include "statedb/DocumentReader.h"

#include <jansson.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>

#include "runtime/base/Format.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Release.h"

namespace statedb {

namespace {

using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

constexpr size_t excerptLength = 32;  // bytes of a malformed document that are shown

// A number that has a point or an exponent keeps one, so that it is no whole number's text.
rt::String realText(double value) {
  rt::String text = rt::toText(rt::Seconds(value));
  if (text.str().find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

// What a person wrote. Of an object or a list, only that it is one.
rt::String shown(const json_t* value) {
  switch (json_typeof(value)) {
    case JSON_OBJECT:
      return json_object_size(value) == 0 ? "{}" : "{...}";
    case JSON_ARRAY:
      return json_array_size(value) == 0 ? "[]" : "[...]";
    case JSON_STRING:
      return {json_string_value(value), json_string_length(value)};
    case JSON_INTEGER:
      return rt::toText(json_integer_value(value));
    case JSON_REAL:
      return realText(json_real_value(value));
    case JSON_TRUE:
      return "true";
    case JSON_FALSE:
      return "false";
    case JSON_NULL:
      return "null";
  }
  return {};
}

bool hasForm(const json_t* value, rt::ValueForm form) {
  switch (form) {
    case rt::ValueForm::boolean:
      return json_is_boolean(value);
    case rt::ValueForm::number:
      return json_is_number(value);
    case rt::ValueForm::text:
      return json_is_string(value);
  }
  return false;
}

template <class T>
rt::String wholeNumber() {
  return "a whole number from " + rt::toText(std::numeric_limits<T>::min()) + " to " +
         rt::toText(std::numeric_limits<T>::max());
}

// A value of the type, described for a person.
rt::String described(std::string_view type) {
  if (type == "bool") return "true or false";
  if (type == "String") return "text";
  if (type == "Seconds") return "a number of seconds";
  if (type == "uint8") return wholeNumber<uint8_t>();
  if (type == "uint16") return wholeNumber<uint16_t>();
  if (type == "uint32") return wholeNumber<uint32_t>();
  if (type == "uint64") return wholeNumber<uint64_t>();
  if (type == "int8") return wholeNumber<int8_t>();
  if (type == "int16") return wholeNumber<int16_t>();
  if (type == "int32") return wholeNumber<int32_t>();
  if (type == "int64") return wholeNumber<int64_t>();
  if (type == "EthAddr") return "a MAC address, such as 52:54:00:12:34:56";
  if (type == "Bridging::VlanId") return "a VLAN number from 1 to 4094";
  if (type == "model::Processors") return "a number of processors, such as 1.5";
  return "a value of type " + rt::String(type);
}

// What would be right instead of `value`, which is no value of the attribute.
rt::String expected(const rt::AttributeInfo& attribute, const json_t* value) {
  rt::String right = "must be " + described(attribute.valueType);
  const bool isText =
      attribute.kind == rt::AttributeKind::values || attribute.form == rt::ValueForm::text;
  if (isText && !json_is_string(value)) return right + ", in quotes";
  if (!isText && json_is_string(value)) return right + ", without quotes";
  return right;
}

// A name without letters is shown as a pair of quotes, so that it can be seen.
rt::String below(const rt::String& path, std::string_view name) {
  const rt::String shown = name.empty() ? rt::String("\"\"") : rt::String(name);
  return path.empty() ? shown : path + "." + shown;
}

// Reads one document and collects what is wrong with it.
class Reader {
 public:
  explicit Reader(std::vector<rt::Problem>& problems) : problems_(problems) {}

  void readFields(rt::Entity& entity, const json_t* object, const rt::String& path) {
    const rt::TypeInfo& type = entity.type();
    for (void* at = first(object); at; at = json_object_iter_next(mutableOf(object), at)) {
      const std::string_view name = json_object_iter_key(at);
      const json_t* const value = json_object_iter_value(at);
      const rt::AttributeInfo* const attribute = type.find(name);
      if (attribute && isField(*attribute))
        readField(entity, *attribute, value, below(path, name));
      else if (attribute)
        refuse(below(path, name), value, "must be left out: it cannot be set");
      else
        refuse(below(path, name), value, unknown(type, name));
    }
  }

 private:
  // jansson's iterators take no const objects, and change none.
  static json_t* mutableOf(const json_t* object) { return const_cast<json_t*>(object); }
  static void* first(const json_t* object) { return json_object_iter(mutableOf(object)); }

  static rt::String unknown(const rt::TypeInfo& type, std::string_view name) {
    std::vector<std::string_view> names;
    for (const auto& attribute : type.attributes)
      if (isField(attribute)) names.push_back(attribute.name);
    rt::String right = "there is no such field";
    const rt::String near = rt::didYouMean(name, names);
    if (!near.empty() || names.empty()) return right + near;
    right += "; there are ";
    for (const auto each : names) (right += each) += each == names.back() ? "" : ", ";
    return right;
  }

  void readField(rt::Entity& entity, const rt::AttributeInfo& attribute, const json_t* value,
                 const rt::String& path) {
    if (attribute.kind == rt::AttributeKind::scalar)
      readScalar(entity, attribute, value, path);
    else if (!json_is_object(value))
      refuse(path, value, "must be an object of members by key: {\"KEY\": ...}");
    else
      readMembers(entity, attribute, value, path);
  }

  void readScalar(rt::Entity& entity, const rt::AttributeInfo& attribute, const json_t* value,
                  const rt::String& path) {
    if (!hasForm(value, attribute.form)) return refuse(path, value, expected(attribute, value));
    attempt([&] { attribute.textIs(entity, shown(value)); }, path, shown(value),
            expected(attribute, value));
  }

  void readMembers(rt::Entity& entity, const rt::AttributeInfo& attribute, const json_t* members,
                   const rt::String& path) {
    size_t tried = 0;
    for (void* at = first(members); at; at = json_object_iter_next(mutableOf(members), at)) {
      const json_t* const value = json_object_iter_value(at);
      tried += readMember(entity, attribute, json_object_iter_key(at), value, path) ? 1 : 0;
    }
    if (attribute.keys(entity).size() < tried)
      refuse(path, members, "each member must be there once: two of the keys mean the same");
  }

  // Whether the member was made.
  bool readMember(rt::Entity& entity, const rt::AttributeInfo& attribute, std::string_view key,
                  const json_t* value, const rt::String& path) {
    const rt::String here = below(path, key);
    // No form is wrong for a key, so only the key itself can be refused.
    const auto isKey = [&] { (void)keyOf(entity, attribute, key); };
    if (!attempt(isKey, path, key, "each key must be " + described(attribute.keyType)))
      return false;
    if (attribute.kind == rt::AttributeKind::values) {
      if (json_is_string(value))
        return attempt([&] { attribute.memberTextIs(entity, key, shown(value)); }, here,
                       shown(value), expected(attribute, value));
      refuse(here, value, expected(attribute, value));
      return false;
    }
    if (!json_is_object(value)) {
      refuse(here, value, "must be an object of fields: {\"FIELD\": ...}");
      return false;
    }
    const auto read = [&](rt::Entity& member) { readFields(member, value, here); };
    return attempt([&] { attribute.memberIs(entity, key, read); }, here, key, "must be a key");
  }

  // Throws AttributeException when `key` is none.
  static bool keyOf(const rt::Entity& entity, const rt::AttributeInfo& attribute,
                    std::string_view key) {
    if (attribute.kind == rt::AttributeKind::values)
      return !attribute.memberText(entity, key).empty();
    return attribute.member(entity, key) != nullptr;
  }

  // Whether `write` went well. Its refusal of a value's text is put as `right`; other exceptions
  // are a mutator's own and say themselves what it takes.
  template <class Write>
  bool attempt(const Write& write, const rt::String& path, const rt::String& value,
               const rt::String& right) {
    try {
      write();
      return true;
    } catch (const rt::AttributeException&) {
      problems_.push_back({path, value, right});
    } catch (const rt::Exception& e) {
      problems_.push_back({path, value, e.what()});
    }
    return false;
  }

  void refuse(const rt::String& path, const json_t* value, const rt::String& right) {
    problems_.push_back({path, shown(value), right});
  }

  std::vector<rt::Problem>& problems_;
};

rt::Problem malformed(std::string_view json, const json_error_t& error) {
  const size_t end = std::min(json.size(), static_cast<size_t>(std::max(error.position, 0)));
  const size_t begin = end - std::min(end, excerptLength);
  return {"document", rt::String(json.substr(begin, end - begin)),
          rt::format("must be a JSON object, but at line %d, column %d: %s", error.line,
                     error.column, error.text)};
}

}  // namespace

bool readDocument(std::string_view json, rt::Entity& scratch, std::vector<rt::Problem>& problems) {
  json_error_t error;
  const JsonPtr root(json_loadb(json.empty() ? "" : json.data(), json.size(),
                                JSON_DECODE_ANY | JSON_REJECT_DUPLICATES | JSON_ALLOW_NUL, &error));
  if (!root) {
    problems.push_back(malformed(json, error));
    return false;
  }
  if (!json_is_object(root.get())) {
    problems.push_back({"document", shown(root.get()), "must be a JSON object"});
    return false;
  }
  Reader(problems).readFields(scratch, root.get(), {});
  return true;
}

}  // namespace statedb
