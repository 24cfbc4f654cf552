#include "host/network/Janitor.h"

#include <algorithm>

#include "host/base/Report.h"

namespace host {

std::vector<rt::String> strayTaps(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours,
                                  const std::vector<TapUse>& uses) {
  std::vector<rt::String> strays;
  for (const Tap& tap : taps) {
    const bool isNamed = std::any_of(uses.begin(), uses.end(), [&](const TapUse& use) {
      return use.device == tap.name && use.mac == tap.mac;
    });
    if (ours.contains(tap.mac) && !isNamed) strays.push_back(tap.name);
  }
  return strays;
}

bool isThere(const TapUse& use, const std::vector<Tap>& taps) {
  return std::find(taps.begin(), taps.end(), Tap{use.device, use.mac}) != taps.end();
}

void Janitor::sweep() {
  const auto taps = tools_.taps();
  if (taps.empty()) return;
  std::vector<TapUse> uses;
  for (const Card& card : cards(*tools_.agent)) uses.push_back({card.tap, card.mac});
  for (const rt::String& stray : strayTaps(taps, tools_.ourAddresses(), uses)) {
    report("the macvtap device " + stray + " is left over and is deleted");
    tools_.remove(stray);
  }
}

void Janitor::handleWithdrawal(const rt::String& interface) {
  for (const Card& card : cards(*tools_.agent)) {
    if (card.interface != interface || card.tap.empty()) continue;
    tools_.remove(card.tap);
    forgetTap(card);
  }
}

void Janitor::handleDevices() {
  const auto all = cards(*tools_.agent);
  const bool anyTap =
      std::any_of(all.begin(), all.end(), [](const Card& card) { return !card.tap.empty(); });
  if (!anyTap) return;
  const auto taps = tools_.taps();
  for (const Card& card : all)
    if (!card.tap.empty() && !isThere({card.tap, card.mac}, taps)) forgetTap(card);
}

}  // namespace host
