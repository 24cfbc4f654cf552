// Who tells of a VM's problem.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace model {

// In the order of weight: of several problems, the first is shown.
enum class ProblemSource : uint8_t {
  config,
  image,
  memory,
  qemu,
  agent,
  line,
  guest,
  card,
  restart,
  format
};

// As a row of vmProblem has them.
inline constexpr std::array<std::string_view, 10> problemSources{
    "config", "image", "memory", "qemu", "agent", "line", "guest", "card", "restart", "format"};

constexpr std::string_view textOf(ProblemSource source) {
  return problemSources[static_cast<size_t>(source)];
}

}  // namespace model
