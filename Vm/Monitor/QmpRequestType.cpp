#include "Vm/Monitor/QmpRequestType.h"

#include <array>

#include "Vm/Monitor/ValueText.h"

namespace Vm {

namespace {

template <class T>
bool isA(std::string_view text) {
  return rt::fromText<T>(text).has_value();
}

}  // namespace

rt::String QmpRequestType::text() const {
  return valueText(typeName, {{"cmd", rt::toText(cmd)},
                              {"cmdId", rt::toText(cmdId)},
                              {"val", val},
                              {"id", rt::toText(id)},
                              {"fd", rt::toText(fd)},
                              {"more", rt::toText(more)}});
}

std::optional<QmpRequestType> QmpRequestType::fromText(std::string_view text) {
  static constexpr std::array<FieldForm, 6> fields{{{"cmd", isA<MonitorCommand>},
                                                    {"cmdId", isA<uint32_t>},
                                                    {"val", isA<rt::String>},
                                                    {"id", isA<QmpIdTypes>},
                                                    {"fd", isA<uint32_t>},
                                                    {"more", isA<bool>}}};
  const auto values = fieldsFromValueText(typeName, fields, text);
  if (!values) return std::nullopt;
  return QmpRequestType{*rt::fromText<MonitorCommand>((*values)[0]),
                        *rt::fromText<uint32_t>((*values)[1]),
                        (*values)[2],
                        *rt::fromText<QmpIdTypes>((*values)[3]),
                        *rt::fromText<uint32_t>((*values)[4]),
                        *rt::fromText<bool>((*values)[5])};
}

}  // namespace Vm
