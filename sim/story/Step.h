// One thing that happens in a story.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/Time.h"

namespace sim {

// What a step is about.
enum class Subject : uint8_t { nobody, vm, port };

// Kinds of step that a story has or has not, together.
enum class Switch : uint8_t {
  operators,  // by the command line; never off
  writers,    // other programs that write the configuration
  daemon,
  shim,
  qemu,
  guest,
  link,
  disk,
  files,  // that somebody spoils, moves or removes
  store,
  clock,
};
inline constexpr size_t switchCount = 11;

struct StepKind {
  std::string_view word;
  Switch group;
  Subject subject;
  unsigned weight;  // how often it is drawn, among all
  uint64_t most;    // of its amount; 0: it has none
};

// All there are. A step names one by its place here.
const std::vector<StepKind>& stepKinds();
// Throws std::invalid_argument when there is none of that word.
size_t kindFromWord(std::string_view word);
std::string_view wordOf(Switch group);

struct Step {
  size_t kind = 0;
  unsigned subject = 0;  // 1 is the first
  uint64_t amount = 0;   // what of, says its kind
  Duration before{};     // what passes first

  const StepKind& what() const { return stepKinds()[kind]; }
  std::string_view word() const { return what().word; }

  friend bool operator==(const Step&, const Step&) = default;
};

// The VM, the device or nothing that it is about.
std::string subjectOf(const Step& step);

// As "+12ms flap Ethernet1 7", and back; throws std::invalid_argument.
std::string toText(const Step& step);
Step stepFromText(std::string_view text);

}  // namespace sim
