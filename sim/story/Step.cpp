#include "sim/story/Step.h"

#include <charconv>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::string_view vmName = "vm";
constexpr std::string_view portName = "Ethernet";

uint64_t numberFrom(std::string_view text) {
  uint64_t number = 0;
  const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || at != text.data() + text.size())
    throw std::invalid_argument("'" + std::string(text) + "' is no number");
  return number;
}

std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  return word;
}

Duration durationFrom(std::string_view text) {
  if (!text.starts_with('+') || !text.ends_with("ms"))
    throw std::invalid_argument("'" + std::string(text) + "' is no time: +NUMBERms");
  return std::chrono::milliseconds(numberFrom(text.substr(1, text.size() - 3)));
}

unsigned subjectFrom(std::string_view text, std::string_view name) {
  if (!text.starts_with(name))
    throw std::invalid_argument("'" + std::string(text) + "' is no " + std::string(name));
  return static_cast<unsigned>(numberFrom(text.substr(name.size())));
}

}  // namespace

std::string subjectOf(const Step& step) {
  switch (step.what().subject) {
    case Subject::nobody:
      return {};
    case Subject::vm:
      return std::string(vmName) + std::to_string(step.subject);
    case Subject::port:
      return std::string(portName) + std::to_string(step.subject);
  }
  return {};
}

std::string toText(const Step& step) {
  std::string text = "+" + std::to_string(step.before / std::chrono::milliseconds(1)) + "ms " +
                     std::string(step.word());
  if (const std::string subject = subjectOf(step); !subject.empty()) text += " " + subject;
  if (step.what().most > 0) text += " " + std::to_string(step.amount);
  return text;
}

Step stepFromText(std::string_view text) {
  Step step;
  step.before = durationFrom(takeWord(text));
  step.kind = kindFromWord(takeWord(text));
  if (step.what().subject == Subject::vm) step.subject = subjectFrom(takeWord(text), vmName);
  if (step.what().subject == Subject::port) step.subject = subjectFrom(takeWord(text), portName);
  if (step.what().most > 0) step.amount = numberFrom(takeWord(text));
  if (const std::string_view rest = takeWord(text); !rest.empty())
    throw std::invalid_argument("'" + std::string(rest) + "' is too much");
  return step;
}

}  // namespace sim
