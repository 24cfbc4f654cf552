// One QMP request that waits to be sent, or for its reply.
#pragma once

#include "Vm/Monitor/MonitorRecords.h"
#include "Vm/QmpParser/QmpTypes.h"

namespace Vm {

// A plain value. Known as MonitorSm::QmpRequestType.
struct QmpRequestType {
  static constexpr std::string_view typeName = "Vm::MonitorSm::QmpRequestType";
  static constexpr uint32_t noFd = 0xFFFFFFFF;

  MonitorCommand cmd{};  // the command it belongs to
  uint32_t cmdId = 0;    // that command's id
  rt::String val;        // the text to write: JSON and a line feed
  QmpIdTypes id{};       // what its reply must echo
  uint32_t fd = 0;       // a descriptor to pass along, or noFd
  bool more = false;     // further requests of the same command follow

  rt::String text() const;
  static std::optional<QmpRequestType> fromText(std::string_view text);
  friend bool operator==(const QmpRequestType&, const QmpRequestType&) = default;
};

}  // namespace Vm
