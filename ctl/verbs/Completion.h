// What a command line may go on with.
#pragma once

#include <functional>
#include <vector>

#include "runtime/base/String.h"

namespace ctl {

// What there is, asked for only where it counts.
struct Nameable {
  std::function<std::vector<rt::String>()> vms;
  std::function<std::vector<rt::String>()> interfaces;
  std::function<std::vector<rt::String>()> removed;  // VMs that can be brought back
  std::function<std::vector<rt::String>(const rt::String& vm)> cards;  // their keys
};

// `words`: those behind "vmctl", the last one not finished and maybe empty. Returns whole words in
// its place; one that ends in "=" is not finished either. Empty where a file may stand.
std::vector<rt::String> completionsOf(const std::vector<rt::String>& words,
                                      const Nameable& nameable);

// The text that teaches a shell, bash, zsh or fish, to ask for them; empty for another.
rt::String completionScript(std::string_view shell);

}  // namespace ctl
