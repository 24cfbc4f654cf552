#include "ctl/view/Schema.h"

#include "ctl/line/Json.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
#include "model/VmOwn.h"

namespace ctl {

namespace {

using Kind = model::VmField::Kind;

// "a":x,"b":y
void add(rt::String& members, std::string_view name, const rt::String& value) {
  if (!members.empty()) members += ',';
  ((members += quoted(name)) += ':') += value;
}

bool isNumber(Kind kind) { return kind == Kind::number || kind == Kind::mebibytes; }

// Of which there is nothing more to say than the kind of value.
const char* typeOf(Kind kind) {
  switch (kind) {
    case Kind::truth:
      return R"("type":"boolean")";
    case Kind::number:
    case Kind::mebibytes:
      return R"("type":"integer","minimum":0,"maximum":4294967295)";
    case Kind::processors:
      return R"("type":"string","pattern":"^[0-9]+(\\.[0-9]{1,2})?$")";
    case Kind::path:
      return R"("type":"string","pattern":"^/[^ ,\\u0000-\\u001f\\u007f]*$")";
    case Kind::macAddr:
      return R"("type":"string","pattern":"^[0-9A-Fa-f]{2}([:-][0-9A-Fa-f]{2}){5}$|^[0-9A-Fa-f]{4}(\\.[0-9A-Fa-f]{4}){2}$")";
    case Kind::text:
      break;
  }
  return R"("type":"string")";
}

rt::String valuesOf(const model::VmField& field) {
  rt::String list;
  for (const std::string_view value : field.values())
    (list += list.empty() ? "" : ",") += quoted(value);
  return "[" + list + "]";
}

// `usual`: the value of one that is missing, as text; nothing: there is none.
rt::String propertyOf(const model::VmField& field, const std::optional<rt::String>& usual) {
  rt::String members = typeOf(field.kind);
  if (field.values && field.kind == Kind::text) add(members, "enum", valuesOf(field));
  if (usual) {
    const bool isText = field.kind != Kind::truth && !isNumber(field.kind);
    add(members, "default", isText ? quoted(*usual) : *usual);
  }
  add(members, "description", quoted(field.help));
  return "{" + members + "}";
}

rt::String objectOf(const rt::String& properties, std::string_view required) {
  rt::String members = R"("type":"object","additionalProperties":false)";
  if (!required.empty()) add(members, "required", rt::String(required));
  add(members, "properties", "{" + properties + "}");
  return "{" + members + "}";
}

// Of the VM's rows in that table; of a table of the host's own all may be missing.
rt::String propertiesOf(std::string_view table, const VmRow& usual) {
  rt::String properties;
  for (const model::VmField& field : model::vmFields()) {
    if (field.isOfCard || field.table != table) continue;
    const bool isNeeded = field.name == "diskImage";
    add(properties, field.name,
        propertyOf(field, isNeeded ? std::optional<rt::String>()
                                   : model::valueOf(usual.record(table), field)));
  }
  return properties;
}

rt::String cardSchema() {
  rt::String properties;
  rt::String required;
  for (const model::VmField& field : model::vmFields()) {
    if (!field.isOfCard) continue;
    add(properties, field.name, propertyOf(field, std::nullopt));
    (required += required.empty() ? "" : ",") += quoted(field.name);
  }
  return objectOf(properties, "[" + required + "]");
}

rt::String configSchema(const VmRow& usual) {
  rt::String properties = propertiesOf(model::table::vmConfig, usual);
  add(properties, "vnicConfig",
      R"({"type":"object","additionalProperties":)" + cardSchema() +
          R"(,"description":"the network cards by their keys"})");
  return objectOf(properties, R"(["diskImage"])");
}

// A VM that is shown may have no configuration that can be read, and no format yet.
rt::String vmSchema(std::span<const std::string_view> passedOver, const VmRow& usual) {
  rt::String properties;
  add(properties, "name", R"({"type":"string","pattern":"^[A-Za-z0-9][A-Za-z0-9._-]{0,63}$"})");
  add(properties, "config", R"({"anyOf":[{"$ref":"#/$defs/config"},{"type":"null"}]})");
  add(properties, "format", R"({"enum":["raw","qcow2",null]})");
  for (const auto& [table, member] : model::ownTables)
    add(properties, member, objectOf(propertiesOf(table, usual), ""));
  for (const std::string_view name : passedOver) add(properties, name, "true");
  return objectOf(properties, R"(["name"])");
}

}  // namespace

rt::String documentSchema(std::span<const std::string_view> passedOver) {
  VmRow usual;  // of which nothing was said
  usual.config = rt::make<Vm::VmConfig>("");
  model::vmDefaults(*usual.config);
  rt::String definitions;
  add(definitions, "config", configSchema(usual));
  add(definitions, "vm", vmSchema(passedOver, usual));
  add(definitions, "vms",
      objectOf(R"("version":{"const":1},"stale":{"type":"boolean"},)"
               R"("vms":{"type":"array","items":{"$ref":"#/$defs/vm"}})",
               R"(["version","vms"])"));
  rt::String members = R"("$schema":"https://json-schema.org/draft/2020-12/schema")";
  add(members, "title", quoted("Virtual machines, as vmctl takes and writes them: version 1"));
  add(members, "anyOf", R"([{"$ref":"#/$defs/vms"},{"$ref":"#/$defs/vm"}])");
  add(members, "$defs", "{" + definitions + "}");
  return "{" + members + "}";
}

}  // namespace ctl
