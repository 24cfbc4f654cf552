#include "host/network/CardHealer.h"

#include <algorithm>
#include <utility>

#include "host/base/Report.h"

namespace host {

namespace {

constexpr std::string_view neverAttached = "linkUninitialized";

rt::String problemOf(const Card& card, const rt::String& obstacle, const rt::String& failure) {
  rt::String why = failure.empty() ? "its device does not stay" : failure;
  if (!obstacle.empty()) why = "the device " + obstacle + " there has its address";
  return "card " + card.mac.text() + " cannot be attached to " + card.interface + ": " + why;
}

}  // namespace

CardHealer::CardHealer(Tools tools, rt::Clock::Ptr clock)
    : tools_(std::move(tools)),
      mover_({.agent = tools_.agent,
              .interfaces = tools_.interfaces,
              .janitor = tools_.janitor,
              .wanted = tools_.wanted}),
      present_(*this, tools_.present),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void CardHealer::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void CardHealer::changed(const rt::String& vm) {
  lookSoonAt(wards_[vm]);
  setClock();
}

void CardHealer::configured(const rt::String& vm) {
  const auto machine = vmMachine(*tools_.agent, vm);
  if (!machine) return;
  const auto all = cardsOf(*machine);
  if (std::none_of(all.begin(), all.end(),
                   [&](const Card& card) { return !mover_.goalOf(vm, card).empty(); }))
    return;
  wards_[vm].lookAt = clock_.notifier()->now();
  setClock();
}

void CardHealer::devicesChanged() {
  for (auto& [vm, ward] : wards_) lookSoonAt(ward);
  setClock();
}

void CardHealer::lookSoonAt(Ward& ward) {
  ward.lookAt = std::min(ward.lookAt, clock_.notifier()->now() + lookDelay);
}

void CardHealer::setClock() {
  rt::Seconds first = rt::Seconds::infinity();
  for (const auto& [vm, ward] : wards_) first = std::min(first, ward.lookAt);
  clock_.timeMinIs(first);
}

bool CardHealer::pass() {
  if (!std::exchange(isDue_, false)) return false;
  const rt::Seconds now = clock_.notifier()->now();
  std::vector<rt::String> due;
  for (const auto& [vm, ward] : wards_)
    if (ward.lookAt <= now) due.push_back(vm);
  std::erase_if(due, [&](const rt::String& vm) { return dropWithoutCards(vm); });
  std::vector<Tap> taps;
  rt::String failure;
  if (!due.empty()) failure = failureOf([&] { taps = tools_.taps(); });
  if (!failure.empty() && !complained_) report("cards are not looked at: " + failure);
  complained_ = !failure.empty();
  for (const rt::String& vm : due) {
    if (complained_)
      wards_[vm].lookAt = now + retryDelay;
    else if (isDue_ = lookAt(vm, taps); isDue_)
      break;
  }
  setClock();
  return isDue_;
}

// Of a guest that has ended, nothing is wrong with its cards.
bool CardHealer::dropWithoutCards(const rt::String& vm) {
  const auto machine = vmMachine(*tools_.agent, vm);
  const auto process = machine ? processOf(*machine) : nullptr;
  if (process && isAlive(*process) && !cardsOf(*machine).empty()) return false;
  wards_.erase(vm);
  tools_.problems.problemIs(vm, ProblemSource::card, {});
  return true;
}

// Whether a card was cured. Then the others have their turn at once, by another look.
bool CardHealer::lookAt(const rt::String& vm, const std::vector<Tap>& taps) {
  const auto machine = vmMachine(*tools_.agent, vm);
  Ward& ward = wards_[vm];
  ward.lookAt = rt::Seconds::infinity();
  rt::String problem;
  for (const Card& card : cardsOf(*machine)) {
    const rt::Seconds now = clock_.notifier()->now();
    if (const rt::String goal = mover_.goalOf(vm, card); !goal.empty()) {
      const bool isMoved = isSettled(*machine) && move(vm, card, goal);
      ward.lookAt = std::min(ward.lookAt, isMoved ? now : now + lookDelay);
      if (isMoved) return true;
      continue;
    }
    Patient& patient = ward.patients[card.mac];
    const bool wasHindered = !patient.obstacle.empty();
    patient.obstacle = obstacleTo(card, taps);
    if (wasHindered && patient.obstacle.empty()) patient.healing.hurry();
    if (patient.healing.next(stateOf(card, *machine, taps), now)) {
      cure(vm, card, patient);
      ward.lookAt = now;
      return true;
    }
    ward.lookAt = std::min(ward.lookAt, patient.healing.wakeUp());
    if (problem.empty() && patient.healing.isStubborn())
      problem = problemOf(card, patient.obstacle, patient.failure);
  }
  tools_.problems.problemIs(vm, ProblemSource::card, problem);
  return false;
}

uint32_t CardHealer::deviceOf(const rt::String& interface) const {
  const auto device = tools_.present->intfStatusAndDeviceName(rt::IntfId(interface));
  return device ? device->ifIndex : 0;
}

CardState CardHealer::stateOf(const Card& card, const rt::Entity& machine,
                              const std::vector<Tap>& taps) const {
  const uint32_t lower = deviceOf(card.interface);
  if (lower == 0 || card.status == neverAttached) return CardState::idle;
  const Tap* const tap = tapOf({card.tap, card.mac, lower}, taps);
  if (card.status == "linkUp" && tap && tap->isUp) return CardState::well;
  return isSettled(machine) ? CardState::sick : CardState::busy;
}

// Whether it was; else it is tried again.
bool CardHealer::move(const rt::String& vm, const Card& card, const rt::String& goal) const {
  const TraceLog::Change change(tools_.traces, vm);
  const rt::String failure = failureOf([&] { mover_.move(vm, card, goal); });
  if (!failure.empty()) report("VM " + vm + ": card " + card.mac.text() + " stays: " + failure);
  return failure.empty();
}

void CardHealer::cure(const rt::String& vm, const Card& card, Patient& patient) {
  report("VM " + vm + ": card " + card.mac.text() + " is cut off from " + card.interface +
         " and is attached anew");
  const rt::Seconds begun = clock_.notifier()->now();
  patient.failure = failureOf([&] {
    tools_.janitor.takeDevice(card);
    // Attached still, or half-way for want of an answer: it must be given up first.
    if (card.status != "linkDown" || card.hasDescriptor) makeAttached(card);
  });
  if (patient.failure.empty()) patient.failure = attachAnew(vm, card);
  patient.healing.cured(begun, clock_.notifier()->now());
}

// Why not; empty when the agent has nothing to say against it.
rt::String CardHealer::attachAnew(const rt::String& vm, const Card& card) const {
  const TraceLog::Change change(tools_.traces, vm);
  const rt::String thrown = failureOf([&] { flapFor(card, *tools_.agent, *tools_.interfaces); });
  const rt::String said = change.failure();
  return said.empty() ? thrown : said;
}

rt::String CardHealer::obstacleTo(const Card& card, const std::vector<Tap>& taps) const {
  const uint32_t lower = deviceOf(card.interface);
  for (const Tap& tap : taps)
    if (tap.mac == card.mac && tap.lower == lower && tap.isUp && tap.name != card.tap)
      return tap.name;
  return {};
}

}  // namespace host
