// A person's terminal, connected to a guest's console.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace ctl {

enum class ConsoleEnd : uint8_t {
  left,      // Ctrl-] was typed, or the person's terminal is gone
  guestEnd,  // the guest's console is gone
  taken,     // another session has it
  signal,    // one that ends a program; it is sent to this one again when all is put back
};

// Carries bytes both ways between the terminal `input`, which is raw meanwhile, and the pty, and
// from the pty to `output`. The terminal is as it was on every way out. Signals that end a program
// are held back meanwhile. Blocks; throws rt::ErrnoException when the pty cannot be opened.
ConsoleEnd holdConsole(int input, int output, const rt::String& pty);

// The same with the socket that a guest's console is shown on, whose keeper lets one type at a time
// and tells others so. Begins with the newest of what the guest wrote.
ConsoleEnd joinConsole(int input, int output, const rt::String& socket);

// The same, and only from there: nothing that is typed reaches the guest, and Ctrl-C leaves, too.
ConsoleEnd viewConsole(int input, int output, const rt::String& socket);

}  // namespace ctl
