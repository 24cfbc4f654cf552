// A name of the C library that is the model's while a program of the world runs.
//
// The functions stand in this program under the library's names (by their asm labels), so whatever
// is linked with it calls them. Outside of a world they hand on to the library.
#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <cstdint>
#include <type_traits>

#include "sim/base/Digest.h"
#include "sim/kernel/Machine.h"

namespace sim {

class Name {
 public:
  constexpr explicit Name(const char* text) : text_(text) {}
  Name(const Name&) = delete;

  // What `self` stands in the place of. `self` only says of what type that is.
  template <class Function>
  Function* library(Function* /*self*/) {
    if (!found_) found_ = dlsym(RTLD_NEXT, text_);
    return reinterpret_cast<Function*>(found_);
  }

  // Does `act`, whose result is as the kernel's, as a call of the current process. The arguments
  // are noted.
  template <class Act, class... A>
  long call(Act act, const A&... arguments) const {
    Digest digest;
    CallNote note{text_, 0, -1, -1};
    [[maybe_unused]] int numbers = 0;
    (add(digest, note, numbers, arguments), ...);
    note.arguments = digest.value();
    Result result = machine().gate.enter(note);
    if (result == 0) result = act();
    result = machine().gate.leave(note, result);
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
  }

 private:
  // Of addresses nothing is noted: they differ from run to run.
  template <class T>
  static void add(Digest& digest, CallNote& note, int& numbers, const T& value) {
    if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      if (numbers == 0) note.first = static_cast<long>(value);
      if (numbers == 1) note.second = static_cast<long>(value);
      ++numbers;
      digest.add(static_cast<uint64_t>(value));
    }
  }
  static void add(Digest& digest, CallNote& /*note*/, int& /*numbers*/, const char* text) {
    if (text) digest.add(std::string_view(text));
  }

  const char* const text_;
  void* found_ = nullptr;
};

}  // namespace sim
