#include "sim/story/Conditions.h"

#include <stdexcept>

namespace sim {

const std::array<ConditionKind, 16>& conditionKinds() {
  static constexpr std::array<ConditionKind, 16> kinds = {{
      {"switchOnceIn", &Conditions::switchOnceIn, 2, 200},
      {"priorities", &Conditions::priorities, 1, 1},
      {"callTime", &Conditions::callTime, 2, 500},
      {"deathGap", &Conditions::deathGap, 1, 5000},
      {"closesLastFirst", &Conditions::closesLastFirst, 1, 4},
      {"processNumbers", &Conditions::processNumbers, 40, 80},
      {"sameIndexes", &Conditions::sameIndexes, 1, 1},
      {"newsDelay", &Conditions::newsDelay, 1, 2000},
      {"nodeDelay", &Conditions::nodeDelay, 1, 3000},
      {"nodeMissing", &Conditions::nodeMissing, 2, 30},
      {"noDescriptor", &Conditions::noDescriptor, 50, 5000},
      {"noMemory", &Conditions::noMemory, 50, 5000},
      {"noProcess", &Conditions::noProcess, 2, 20},
      {"diskErrors", &Conditions::diskErrors, 50, 5000},
      {"interrupted", &Conditions::interrupted, 5, 500},
      {"oldKernel", &Conditions::oldKernel, 1, 1},
  }};
  return kinds;
}

std::string toText(const Conditions& conditions) {
  std::string text;
  for (const ConditionKind& each : conditionKinds())
    if (const uint64_t value = conditions.*each.value; value != 0)
      text += (text.empty() ? "" : " ") + std::string(each.word) + "=" + std::to_string(value);
  return text;
}

void addCondition(Conditions& conditions, std::string_view text) {
  const size_t equals = text.find('=');
  for (const ConditionKind& each : conditionKinds()) {
    if (equals == std::string_view::npos || text.substr(0, equals) != each.word) continue;
    conditions.*each.value = std::stoull(std::string(text.substr(equals + 1)));
    return;
  }
  throw std::invalid_argument("'" + std::string(text) + "' is no condition");
}

}  // namespace sim
