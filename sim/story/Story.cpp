#include "sim/story/Story.h"

#include <array>
#include <stdexcept>

#include "sim/base/Choices.h"

namespace sim {

namespace {

constexpr unsigned mostVms = 4;
constexpr unsigned mostPorts = 4;

// Some kinds of step are off in each story, and those that are on differ in how often they come.
std::vector<unsigned> weightsOf(Choices& choices) {
  Stream& stream = choices.stream("switches");
  std::array<unsigned, switchCount> factors{};
  const bool isQuiet = stream.oneIn(8);
  for (unsigned& each : factors)
    each = isQuiet || stream.oneIn(2) ? 0 : static_cast<unsigned>(stream.between(1, 8));
  factors[0] = 3;
  const bool daemonFails = factors[static_cast<size_t>(Switch::daemon)] > 0;
  std::vector<unsigned> weights;
  for (const StepKind& each : stepKinds()) {
    unsigned weight = each.weight * factors.at(static_cast<size_t>(each.group));
    if (each.word == "start-daemon" && !daemonFails) weight = 3;
    weights.push_back(weight);
  }
  return weights;
}

Conditions conditionsOf(Choices& choices) {
  Stream& stream = choices.stream("conditions");
  Conditions conditions;
  if (stream.oneIn(4)) return conditions;
  const uint64_t oneOf = stream.between(2, 8);
  for (const ConditionKind& each : conditionKinds())
    if (stream.oneIn(oneOf)) conditions.*each.value = stream.between(each.least, each.most);
  return conditions;
}

// Often a moment, for what goes wrong together is what nobody has thought of.
Duration pauseOf(Stream& stream) {
  switch (stream.below(8)) {
    case 0:
    case 1:
      return Duration::zero();
    case 2:
    case 3:
    case 4:
      return std::chrono::milliseconds(stream.between(1, 50));
    case 5:
      return std::chrono::milliseconds(stream.between(50, 2000));
    case 6:
      return std::chrono::milliseconds(stream.between(1000, 15'000));
    default:
      return std::chrono::milliseconds(stream.between(1000, 100'000));
  }
}

Step stepOf(Choices& choices, const std::vector<unsigned>& weights, unsigned vms) {
  Stream& stream = choices.stream("steps");
  uint64_t total = 0;
  for (const unsigned each : weights) total += each;
  uint64_t drawn = stream.below(total);
  Step step;
  while (drawn >= weights[step.kind]) drawn -= weights[step.kind++];
  if (step.what().subject == Subject::vm) step.subject = 1 + unsigned(stream.below(vms));
  if (step.what().subject == Subject::port) step.subject = 1 + unsigned(stream.below(mostPorts));
  if (step.what().most > 0) step.amount = stream.below(step.what().most + 1);
  step.before = pauseOf(stream);
  return step;
}

std::string_view takeUntil(std::string_view& text, char end) {
  const std::string_view part = text.substr(0, text.find(end));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

std::string_view trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\n");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\n") + 1 - begin);
}

void readHead(Story& story, std::string_view head) {
  while (!(head = trimmed(head)).empty()) {
    const std::string_view word = takeUntil(head, ' ');
    bool isBeginning = false;
    for (size_t i = 0; i < beginningCount; ++i)
      if (word == wordOf(static_cast<Beginning>(i))) {
        story.beginning = static_cast<Beginning>(i);
        isBeginning = true;
      }
    if (isBeginning) continue;
    if (word.starts_with("seed="))
      story.seed = std::stoull(std::string(word.substr(word.find('=') + 1)));
    else
      addCondition(story.conditions, word);
  }
}

}  // namespace

std::string_view wordOf(Beginning beginning) {
  constexpr std::array<std::string_view, beginningCount> words = {"empty", "running", "adopted"};
  return words.at(static_cast<size_t>(beginning));
}

Story storyOf(uint64_t seed, size_t steps) {
  Choices choices(seed);
  Story story;
  story.seed = seed;
  Stream& stream = choices.stream("story");
  story.beginning = static_cast<Beginning>(stream.below(beginningCount));
  const auto vms = static_cast<unsigned>(stream.between(1, mostVms));
  story.conditions = conditionsOf(choices);
  const auto weights = weightsOf(choices);
  for (size_t i = 0; i < steps; ++i) story.steps.push_back(stepOf(choices, weights, vms));
  return story;
}

std::string toText(const Story& story) {
  std::string text = "seed=" + std::to_string(story.seed) + " ";
  text += wordOf(story.beginning);
  if (const std::string conditions = toText(story.conditions); !conditions.empty())
    text += " " + conditions;
  text += ":";
  for (const Step& each : story.steps)
    text += (&each == story.steps.data() ? " " : "; ") + toText(each);
  return text;
}

Story storyFromText(std::string_view text) {
  std::string_view line = trimmed(text.substr(0, text.find('#')));
  Story story;
  const bool hasSteps = line.find(':') != std::string_view::npos;
  readHead(story, takeUntil(line, ':'));
  while (hasSteps && !(line = trimmed(line)).empty())
    story.steps.push_back(stepFromText(trimmed(takeUntil(line, ';'))));
  return story;
}

}  // namespace sim
