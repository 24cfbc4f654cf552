// What operators wish, among what the agent asks for.
#include "shim/decide/Relay.h"

namespace shim {

namespace {

// A bound of their own, so that none takes the agent's place.
constexpr size_t mostWishes = 256;

}  // namespace

Actions Relay::wish(Time now, uint64_t number, Wish wish) {
  std::string refusal = refusalOf(wish, guestHasRun_);
  if (!isReady()) refusal = "QEMU is not ready";
  if (isStalled()) refusal = "QEMU does not answer";
  if (queue_.wishes() >= mostWishes) refusal = "too much waits for QEMU";
  if (wish.kind == Wish::Kind::picture && !pictures_.hasRoom())
    refusal = "QEMU keeps the pictures of a guest that stands still, and has room for no more";
  if (!refusal.empty()) {
    out_.outcomes.push_back({number, std::move(refusal)});
    return taken();
  }
  Command command{{}, std::move(wish.picture), now + setup_.patience.answer, false};
  command.wish = number;
  command.isPicture = wish.kind == Wish::Kind::picture;
  command.steps = stepsOf(wish, number);
  command.request.execute = command.steps.front().execute;
  queue_.push(std::move(command));
  startNext(now);
  return taken();
}

Actions Relay::lineIs(Time now, const std::string& card, bool isUp) {
  cards_.lineIs(card, isUp);
  startNext(now);
  return taken();
}

void Relay::wishIsOver(Command& command, std::string refusal) {
  if (const auto wish = std::exchange(command.wish, std::nullopt))
    out_.outcomes.push_back({*wish, std::move(refusal)});
}

// Their answers are nobody's.
void Relay::removePictures() {
  for (const Step& step : pictures_.removals())
    out_.toQemu.push_back({qmp::requestLine(step.execute, step.arguments, nextId_++), {}});
}

}  // namespace shim
