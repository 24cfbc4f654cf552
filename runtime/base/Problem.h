// What is wrong with a value that a person gave.
#pragma once

#include "runtime/base/String.h"

namespace rt {

// One finding about a configuration. Whoever checks finds all there are; they are thrown nowhere.
struct Problem {
  String field;  // its path, such as "memory" or "vnicConfig.nic00.macAddr"
  String value;  // what stands there, as it is; text() shortens it, and the path as well
  String right;  // what would do: "must be 1 to 7940 (mebibytes)"

  // "memory: '0' is refused: must be 1 to 7940 (mebibytes)". One line, fit for a terminal (see
  // visibleText()).
  String text() const;

  friend bool operator==(const Problem&, const Problem&) = default;
};

}  // namespace rt
