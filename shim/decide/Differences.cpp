#include "shim/decide/Differences.h"

#include <algorithm>

namespace shim {

namespace {

const Card* cardOf(const CommandLine& line, const std::string& mac) {
  const auto found = std::find_if(line.cards.begin(), line.cards.end(),
                                  [&](const Card& card) { return card.mac == mac; });
  return found == line.cards.end() ? nullptr : &*found;
}

std::string settingOf(const CommandLine& line, const std::string& name) {
  const auto found = line.settings.find(name);
  return found == line.settings.end() ? std::string() : found->second;
}

std::string reason(const std::string& what) { return "restart needed: " + what; }

}  // namespace

std::map<std::string, std::string> cardNames(const CommandLine& guest, const CommandLine& wanted) {
  std::map<std::string, std::string> names;
  for (const Card& card : wanted.cards)
    if (const Card* const own = cardOf(guest, card.mac)) names[card.id] = own->id;
  return names;
}

std::vector<std::string> restartReasons(const CommandLine& guest, const CommandLine& wanted) {
  std::vector<std::string> reasons;
  for (const char* const name : setting::all)
    if (settingOf(guest, name) != settingOf(wanted, name))
      reasons.push_back(reason(std::string(name) + " was changed"));
  for (const Card& card : wanted.cards) {
    const Card* const own = cardOf(guest, card.mac);
    if (!own)
      reasons.push_back(reason("the guest has no card with MAC address " + card.mac));
    else if (own->model != card.model)
      reasons.push_back(
          reason("card " + card.mac + " is a " + own->model + ", and is to be a " + card.model));
  }
  for (const Card& card : guest.cards)
    if (!cardOf(wanted, card.mac))
      reasons.push_back(reason("card " + card.mac + " is to be none of the guest's"));
  return reasons;
}

}  // namespace shim
