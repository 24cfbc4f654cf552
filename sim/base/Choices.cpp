#include "sim/base/Choices.h"

#include <charconv>
#include <stdexcept>

#include "sim/base/Digest.h"

namespace sim {

namespace {

uint64_t numberFrom(std::string_view text) {
  uint64_t number = 0;
  const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || at != text.data() + text.size())
    throw std::invalid_argument("'" + std::string(text) + "' is no number");
  return number;
}

}  // namespace

Stream::Stream(Choices& owner, std::string name)
    : owner_(owner), name_(std::move(name)), state_(mixed(owner.seed() ^ digestOf(name_))) {}

uint64_t Stream::below(uint64_t count) {
  const uint64_t ordinal = made_++;
  if (count <= 1) return 0;
  uint64_t value = mixed(state_ + ordinal) % count;
  if (allFixed_) value = *allFixed_ % count;
  if (!fixed_.empty())
    if (const auto found = fixed_.find(ordinal); found != fixed_.end())
      value = found->second % count;
  if (value != 0 && owner_.recording_) owner_.recorded_.push_back({name_, ordinal, value});
  return value;
}

void Stream::fix(const FixedChoice& choice) {
  if (choice.ordinal == FixedChoice::all)
    allFixed_ = choice.value;
  else
    fixed_[choice.ordinal] = choice.value;
}

uint64_t Stream::between(uint64_t least, uint64_t most) {
  if (most <= least) return least;
  uint64_t powers = 0;
  while ((most - least) >> powers > 0) ++powers;
  const uint64_t range = std::min(uint64_t{1} << below(powers + 1), most - least + 1);
  return least + below(range);
}

std::string toText(const FixedChoice& choice) {
  const std::string ordinal =
      choice.ordinal == FixedChoice::all ? "*" : std::to_string(choice.ordinal);
  return choice.stream + "#" + ordinal + "=" + std::to_string(choice.value);
}

FixedChoice fixedChoiceFromText(std::string_view text) {
  const size_t mark = text.rfind('#');
  const size_t equals = text.rfind('=');
  if (mark == std::string_view::npos || equals == std::string_view::npos || equals < mark)
    throw std::invalid_argument("'" + std::string(text) + "' is no choice: STREAM#ORDINAL=VALUE");
  const std::string_view ordinal = text.substr(mark + 1, equals - mark - 1);
  return {std::string(text.substr(0, mark)),
          ordinal == "*" ? FixedChoice::all : numberFrom(ordinal),
          numberFrom(text.substr(equals + 1))};
}

void Choices::seedIs(uint64_t seed) {
  seed_ = seed;
  for (auto& [name, stream] : streams_) {
    stream.state_ = mixed(seed_ ^ digestOf(name));
    stream.made_ = 0;
  }
}

void Choices::fix(const FixedChoice& choice) {
  fixed_.push_back(choice);
  if (const auto found = streams_.find(choice.stream); found != streams_.end())
    found->second.fix(choice);
}

Stream& Choices::stream(std::string_view name) {
  const auto found = streams_.find(name);
  if (found != streams_.end()) return found->second;
  Stream& made = streams_.try_emplace(std::string(name), *this, std::string(name)).first->second;
  for (const FixedChoice& each : fixed_)
    if (each.stream == name) made.fix(each);
  return made;
}

}  // namespace sim
