#include "ctl/verbs/FieldVerbs.h"

#include "ctl/line/Json.h"
#include "ctl/verbs/ApplyDocument.h"
#include "ctl/view/Schema.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

rt::String pathOf(const model::VmField& field) {
  return (field.isOfCard ? "vnicConfig.KEY." : "") + rt::String(field.name);
}

const char* nameOf(model::VmField::Kind kind) {
  switch (kind) {
    case model::VmField::Kind::truth:
      return "truth";
    case model::VmField::Kind::number:
      return "number";
    case model::VmField::Kind::mebibytes:
      return "mebibytes";
    case model::VmField::Kind::processors:
      return "processors";
    case model::VmField::Kind::text:
      return "text";
    case model::VmField::Kind::path:
      return "path";
    case model::VmField::Kind::macAddr:
      break;
  }
  return "macAddr";
}

// A VM of which nothing was said but its name.
VmRow usualVm() {
  VmRow row;
  row.config = rt::make<Vm::VmConfig>("");
  model::vmDefaults(*row.config);
  return row;
}

rt::String textOrNull(std::string_view text) {
  return text.empty() ? rt::String("null") : quoted(text);
}

rt::String valuesJson(const model::VmField& field) {
  if (!field.values) return "null";
  rt::String json = "[";
  for (const std::string_view value : field.values())
    (json += json.size() > 1 ? "," : "") += quoted(value);
  return json += "]";
}

rt::String fieldJson(const model::VmField& field, const VmRow& usual) {
  rt::String json = R"({"field":)" + quoted(pathOf(field));
  ((json += R"(,"kind":")") += nameOf(field.kind)) += '"';
  (json += R"(,"table":)") += quoted(field.table);
  (json += R"(,"help":)") += quoted(field.help);
  (json += R"(,"option":)") += textOrNull(field.option);
  (json += R"(,"atOnce":)") += rt::toText(field.takesEffectAtOnce);
  (json += R"(,"usual":)") +=
      field.isOfCard ? "null" : quoted(model::valueOf(usual.record(field.table), field));
  return ((json += R"(,"values":)") += valuesJson(field)) += '}';
}

}  // namespace

Exit listFields(Context& context, const Arguments&) {
  if (context.format() == Format::json) {
    const VmRow usual = usualVm();
    rt::String json = jsonHead(false) + R"("fields":[)";
    const char* separator = "";
    for (const model::VmField& field : model::vmFields()) {
      (json += separator) += fieldJson(field, usual);
      separator = ",";
    }
    context.printJson(json + "]}");
    return Exit::done;
  }
  Table table({"FIELD", "IN FORCE", "WHAT"});
  for (const model::VmField& field : model::vmFields())
    table.row({pathOf(field), field.takesEffectAtOnce ? "at once" : "at the next start",
               rt::String(field.help)});
  context.print(table);
  return Exit::done;
}

Exit printSchema(Context& context, const Arguments&) {
  context.printJson(documentSchema(passedOverFields()));
  return Exit::done;
}

}  // namespace ctl
