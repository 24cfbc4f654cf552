#include "Vm/Monitor/MonitorRecords.h"

#include <array>

#include "Vm/Monitor/MonitorSm.h"
#include "Vm/Monitor/ValueText.h"
#include "runtime/entity/TypeRegistry.h"

namespace Vm {

rt::String MonitorCommandArg::text() const {
  return valueText(typeName,
                   {{"argName", argName}, {"u32Val", rt::toText(u32Val)}, {"strVal", strVal}});
}

std::optional<MonitorCommandArg> MonitorCommandArg::fromText(std::string_view text) {
  static constexpr std::array<FieldForm, 3> fields{
      {{"argName", [](std::string_view) { return true; }},
       {"u32Val", [](std::string_view t) { return rt::fromText<uint32_t>(t).has_value(); }},
       {"strVal", [](std::string_view) { return true; }}}};
  const auto values = fieldsFromValueText(typeName, fields, text);
  if (!values) return std::nullopt;
  return MonitorCommandArg{(*values)[0], *rt::fromText<uint32_t>((*values)[1]), (*values)[2]};
}

void MonitorCommandArgs::argIs(const MonitorCommandArg& arg) {
  store<&MonitorCommandArgs::arg>(arg_, arg.argName, arg);
}

void MonitorCommandArgs::argDel(const rt::String& name) {
  remove<&MonitorCommandArgs::arg>(arg_, name);
}

void MonitorCommandArgs::argDelAll() { removeAll<&MonitorCommandArgs::arg>(arg_); }

namespace {

const rt::RegisteredTypes<MonitorCommandArgs, MonitorInput, MonitorOutput, MonitorStatus, MonitorSm>
    registered;

}  // namespace

}  // namespace Vm
