// The screen of the terminal that this program was started at.
#pragma once

#include <memory>

#include "ctl/machine/Screen.h"

namespace ctl {

// Takes it until the screen goes; then all is as it was before, and a signal that came meanwhile is
// met. `input` and `output` are the terminal.
std::unique_ptr<Screen> takeScreen(int input, int output);

}  // namespace ctl
