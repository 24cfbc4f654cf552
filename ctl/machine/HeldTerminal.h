// A terminal that one program has for itself for a while.
#pragma once

#include <termios.h>

#include <csignal>
#include <string_view>

#include "runtime/base/Descriptor.h"

namespace ctl {

// A terminal that is raw as long as this lives.
class RawTerminal {
 public:
  explicit RawTerminal(int descriptor);
  RawTerminal(const RawTerminal&) = delete;
  ~RawTerminal();

 private:
  const int descriptor_;
  termios before_{};
  bool isRaw_ = false;
};

// Signals that would end or stop the program, as something to read, as long as this lives.
class HeldSignals {
 public:
  HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  ~HeldSignals();
  int descriptor() const { return descriptor_.number(); }
  void take();

 private:
  int hold();

  sigset_t before_{};
  int signal_ = 0;
  rt::Descriptor descriptor_;
};

// False: not all of it could be written.
bool writeAll(int descriptor, std::string_view bytes);

}  // namespace ctl
