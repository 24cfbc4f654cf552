// A person's terminal, connected to a guest's pty.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace ctl {

enum class ConsoleEnd : uint8_t {
  left,      // Ctrl-] was typed, or the person's terminal is gone
  guestEnd,  // the guest's pty is gone
  taken,     // another session has it
  signal,    // one that ends a program; it is sent to this one again when all is put back
};

// Carries bytes both ways between the terminal `input`, which is raw meanwhile, and the pty, and
// from the pty to `output`. The terminal is as it was on every way out. Signals that end a program
// are held back meanwhile. Blocks; throws rt::ErrnoException when the pty cannot be opened.
ConsoleEnd holdConsole(int input, int output, const rt::String& pty);

}  // namespace ctl
