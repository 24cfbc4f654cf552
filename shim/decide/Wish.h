// What an operator wants of a guest, beside its end: what QEMU is asked for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/Descriptor.h"
#include "shim/decide/Cards.h"
#include "shim/decide/Time.h"

namespace shim {

struct Wish {
  enum class Kind : uint8_t { pause, resume, reset, interrupt, keys, picture };
  Kind kind = Kind::pause;
  // Of those that are pressed together, QEMU's names: "ctrl", "alt", "delete".
  std::vector<std::string> keys;
  rt::Descriptors picture;  // where QEMU writes it, as PNG
};

// The word of guest/ShimProtocol.h that asks for it.
std::string_view wordOf(Wish::Kind kind);

// What QEMU is asked. `number`: no two wishes have the same. Pure.
std::vector<Step> stepsOf(const Wish& wish, uint64_t number);

// Of a guest that was not let run yet, who would be let run by whoever asks for it, or never;
// empty: nothing forbids the wish.
std::string refusalOf(const Wish& wish, bool guestHasRun);

constexpr size_t mostKeys = 8;
// Whether it may be a key's name: whether there is one of that name, QEMU knows.
bool mayBeKey(std::string_view name);

}  // namespace shim
