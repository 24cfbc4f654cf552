#include "host/network/Janitor.h"

#include <algorithm>
#include <string_view>

#include "host/base/Report.h"

namespace host {

namespace {

bool isAgentsName(std::string_view name) {
  constexpr std::string_view prefix = "macvtap";
  return name.size() > prefix.size() && name.starts_with(prefix) &&
         name.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
}

}  // namespace

std::vector<rt::String> strayTaps(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours,
                                  const std::vector<TapUse>& uses) {
  std::vector<rt::String> strays;
  for (const Tap& tap : taps) {
    const bool isNamed = std::any_of(uses.begin(), uses.end(), [&](const TapUse& use) {
      return use.device == tap.name && use.mac == tap.mac;
    });
    if (ours.contains(tap.mac) && isAgentsName(tap.name.str()) && !isNamed)
      strays.push_back(tap.name);
  }
  return strays;
}

// One whose node is not known is not proven to be nobody's.
bool mayBeOthers(const rt::String& name, const std::vector<Tap>& taps,
                 const std::optional<Nodes>& others) {
  return std::any_of(taps.begin(), taps.end(), [&](const Tap& tap) {
    return tap.name == name && (tap.node == 0 || !others || others->contains(tap.node));
  });
}

const Tap* tapOf(const TapUse& use, const std::vector<Tap>& taps) {
  const auto found = std::find_if(taps.begin(), taps.end(), [&](const Tap& tap) {
    return tap.name == use.device && tap.mac == use.mac && tap.lower == use.lower;
  });
  return found == taps.end() ? nullptr : &*found;
}

TapUse Janitor::useOf(const Card& card) const {
  return {.device = card.tap, .mac = card.mac, .lower = tools_.deviceOf(card.interface)};
}

void Janitor::sweep() {
  const auto taps = tools_.taps();
  if (!taps.empty()) sweep(taps, tools_.ourAddresses());
}

// Most often none is ours, and then not every VM has to be asked for its cards.
void Janitor::sweep(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours) {
  if (strayTaps(taps, ours, {}).empty()) return;
  std::vector<TapUse> uses;
  for (const Card& card : cards(*tools_.agent)) uses.push_back(useOf(card));
  const auto strays = strayTaps(taps, ours, uses);
  const auto others = strays.empty() ? std::optional(Nodes()) : tools_.nodesOfOthers();
  for (const rt::String& stray : strays) {
    const bool isOthers = mayBeOthers(stray, taps, others);
    report("the macvtap device " + stray +
           (isOthers ? " has the address of a card, but another program may have it open: it stays"
                     : " is left over and is deleted"));
    if (!isOthers) tools_.remove(stray);
  }
}

void Janitor::switchingOff(const rt::String& vm) {
  const auto machine = vmMachine(*tools_.agent, vm);
  if (!machine) return;
  const auto all = cardsOf(*machine);
  if (all.empty()) return;
  for (const Card& card : all) switchingOff_[vm].insert(card.mac);
  std::vector<Tap> taps;
  const rt::String failure = failureOf([&] { taps = tools_.taps(); });
  if (!failure.empty()) report("VM " + vm + " leaves its cards' devices for later: " + failure);
  for (const Card& card : all)
    if (!card.tap.empty() && !tapOf(useOf(card), taps)) forgetTap(card);
}

void Janitor::switchedOff(const rt::String& vm) {
  const auto known = switchingOff_.extract(vm);
  if (known.empty()) return;
  const rt::String failure = failureOf([&] { sweep(tools_.taps(), known.mapped()); });
  if (!failure.empty()) report("VM " + vm + ": what it left is not looked for: " + failure);
}

void Janitor::guestLeaves(const rt::String& vm, const Nodes& held) {
  if (held.empty()) return;
  const rt::String failure = failureOf([&] {
    for (const Tap& tap : tools_.taps())
      if (held.contains(tap.node)) leaving_[vm].insert(tap.mac);
  });
  if (!failure.empty()) report("VM " + vm + ": what its guest will leave is not known: " + failure);
}

void Janitor::guestLeft(const rt::String& vm) {
  const rt::String failure = failureOf([&] {
    std::set<rt::EthAddr> ours = tools_.ourAddresses();
    if (auto known = leaving_.extract(vm)) ours.merge(known.mapped());
    sweep(tools_.taps(), ours);
  });
  if (!failure.empty()) report("VM " + vm + ": what its guest left is not looked for: " + failure);
}

void Janitor::handleWithdrawal(const rt::String& interface) {
  std::vector<Card> there;
  for (const Card& card : cards(*tools_.agent))
    if (card.interface == interface && !card.tap.empty()) there.push_back(card);
  if (there.empty()) return;
  const auto taps = tools_.taps();
  for (const Card& card : there) {
    if (const Tap* const tap = tapOf(useOf(card), taps)) tools_.remove(tap->name);
    forgetTap(card);
  }
}

// Its own is proven to be that, so nobody is asked who has it open.
void Janitor::takeDevice(const Card& card) {
  auto taps = tools_.taps();
  if (const Tap* const own = tapOf(useOf(card), taps)) {
    const rt::String name = own->name;
    tools_.remove(name);
    std::erase_if(taps, [&](const Tap& tap) { return tap.name == name; });
  }
  forgetTap(card);
  sweep(taps, {card.mac});
}

}  // namespace host
