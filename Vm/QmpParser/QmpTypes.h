// The kinds of QMP messages, and the requests that replies belong to.
#pragma once

#include "runtime/base/Text.h"

namespace Vm {

enum class QmpTypes : uint8_t {
  qmpTypeQmp,         // the greeting
  qmpTypeReturn,      // a reply with "return"
  qmpTypeError,       // a reply with "error"
  qmpTypeEvent,       // an asynchronous event
  qmpTypeInvalid,     // never produced
  qmpTypeParseError,  // never produced
};
constexpr rt::EnumNames<6> enumNames(QmpTypes) {
  return {"qmpTypeQmp",   "qmpTypeReturn",  "qmpTypeError",
          "qmpTypeEvent", "qmpTypeInvalid", "qmpTypeParseError"};
}

// The names are the ids that requests carry and replies echo.
enum class QmpIdTypes : uint8_t {
  hello,    // the greeting
  enter,    // capabilities negotiation
  status,   // status query
  cont,     // resume the guest
  chardev,  // character device query
  netdev,   // network backend add or delete
  setlink,  // link state change
  getfd,    // descriptor passing
  closefd,  // descriptor release
  invalid,  // none: events, unknown ids
};
constexpr rt::EnumNames<10> enumNames(QmpIdTypes) {
  return {"hello",  "enter",   "status", "cont",    "chardev",
          "netdev", "setlink", "getfd",  "closefd", "invalid"};
}

}  // namespace Vm
