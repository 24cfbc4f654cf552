// The table of verbs, and what it tells of them.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "ctl/line/Context.h"

namespace ctl {

struct Verb {
  std::string_view name;  // one word, or two: "nic add"
  std::string_view alias;
  std::string_view operands;  // in capitals, as help writes them
  size_t fewest;              // operands
  size_t most;
  // The names of those it takes besides the global ones; FIELDS for those of a VM's fields.
  std::string_view options;
  std::string_view formats;  // of -o; empty: it has no output
  std::string_view summary;  // empty: for programs, and not in the help
  std::string_view help;     // a line FIELDS stands for a line for each field of a VM
  Exit (*run)(Context& context, const Arguments& arguments);
};

constexpr size_t anyNumber = static_cast<size_t>(-1);

std::span<const Verb> verbs();

// By name or alias; null: there is none.
const Verb* verbNamed(std::string_view name);
bool takes(const Verb& verb, const Option& option);
// Whether every verb takes it.
bool isGlobal(const Option& option);
// What stands between blanks.
std::vector<std::string_view> wordsOf(std::string_view text);

// The verb that the arguments begin with; takes its words off them. Refuses an unknown one.
const Verb& takeVerb(Arguments& arguments);
// Refuses operands and options that the verb does not take.
void requireFit(const Verb& verb, const Arguments& arguments);
// Of an option that there is not, behind the verb that these words name.
Refusal unknownOption(const rt::String& option, std::span<const rt::String> arguments);
Format formatOf(const Verb& verb, const Arguments& arguments);

rt::String helpOf(const Verb& verb);
// Of all verbs of two words that begin with that; empty: there are none.
rt::String helpOf(std::string_view first);
rt::String generalHelp();
// "vmctl wait NAME --for FIELD=VALUE [--timeout S]"
rt::String synopsisOf(const Verb& verb);

}  // namespace ctl
