#include "shim/Cards.h"

#include <algorithm>

#include "shim/Arguments.h"

namespace shim {

namespace {

std::string textOf(const qmp::Request& request, const char* argument) {
  const auto found = request.texts.find(argument);
  return found == request.texts.end() ? std::string() : found->second;
}

std::string deletion(const std::string& id) { return "{\"id\":" + qmp::quoted(id) + "}"; }

std::string link(const std::string& name, const char* up) {
  return "{\"name\":" + qmp::quoted(name) + ",\"up\":" + up + "}";
}

std::string hubPort(size_t hub, const std::string& netdev) {
  return "{\"type\":\"hubport\",\"hubid\":" + std::to_string(hub) +
         ",\"id\":" + qmp::quoted(hubPortId(netdev)) + ",\"netdev\":" + qmp::quoted(netdev) + "}";
}

}  // namespace

bool Cards::isAbout(const std::string& execute) {
  constexpr std::string_view commands[] = {"getfd",    "netdev_add", "netdev_set",
                                           "set_link", "closefd",    "netdev_del"};
  return std::find(std::begin(commands), std::end(commands), execute) != std::end(commands);
}

bool Cards::alwaysSucceeds(const std::string& execute) {
  return execute == "set_link" || execute == "netdev_del";
}

std::optional<std::string> Cards::netdevOf(const std::string& card) const {
  for (const auto& [netdev, bound] : cardByNetdev_)
    if (bound == card) return netdev;
  return std::nullopt;
}

Plan Cards::planFor(const qmp::Request& request) const {
  if (request.execute == "netdev_set") return bindPlan(request);
  Plan plan{{{request.execute, request.arguments}}, {}};
  if (request.execute == "cont")
    for (const std::string& card : cards_)
      if (!netdevOf(card))
        plan.steps.insert(std::prev(plan.steps.end()), {"set_link", link(card, "false")});
  if (request.execute == "set_link") {
    const auto bound = cardByNetdev_.find(textOf(request, "name"));
    if (bound != cardByNetdev_.end())
      plan.steps.push_back({"set_link", link(bound->second, request.up ? "true" : "false")});
    else if (const std::string card = ourName(textOf(request, "name")); names_ && !card.empty())
      plan.steps.front().arguments = link(card, request.up ? "true" : "false");
  } else if (request.execute == "netdev_del") {
    const auto bound = cardByNetdev_.find(textOf(request, "id"));
    if (bound != cardByNetdev_.end())
      plan.steps.insert(plan.steps.begin(), {"netdev_del", deletion(hubPortId(bound->first))});
  }
  return plan;
}

Plan Cards::bindPlan(const qmp::Request& request) const {
  const std::string card = ourName(textOf(request, "nicid"));
  const std::string netdev = textOf(request, "netdevid");
  const auto hub = std::find(cards_.begin(), cards_.end(), card);
  if (hub == cards_.end())
    return {{},
            "the guest has no card '" + textOf(request, "nicid") + "'" +
                (names_ ? ": restart needed" : "")};
  if (const auto other = netdevOf(card))
    return {{}, "card '" + card + "' is bound to netdev '" + *other + "': delete that first"};
  if (const auto bound = cardByNetdev_.find(netdev); bound != cardByNetdev_.end())
    return {{}, "netdev '" + netdev + "' is bound to card '" + bound->second + "'"};
  return {{{"netdev_add", hubPort(static_cast<size_t>(hub - cards_.begin()), netdev)}}, {}};
}

std::string Cards::ourName(const std::string& card) const {
  if (names_) {
    const auto found = names_->find(card);
    return found == names_->end() ? std::string() : found->second;
  }
  return std::find(cards_.begin(), cards_.end(), card) == cards_.end() ? std::string() : card;
}

std::optional<Cards::Removal> Cards::removal() const {
  if (!netdevs_.empty()) {
    const std::string& netdev = *netdevs_.begin();
    Removal removal{{"netdev_del", {}, deletion(netdev), {{"id", netdev}}}, {}};
    removal.plan = planFor(removal.request);
    // A card whose hub has no other port would wait for ever with what the guest sends meanwhile:
    // QEMU keeps that, and nothing of what comes later makes it go on. With its line down it drops
    // it.
    if (const auto bound = cardByNetdev_.find(netdev); bound != cardByNetdev_.end())
      removal.plan.steps.insert(removal.plan.steps.begin(),
                                {"set_link", link(bound->second, "false")});
    return removal;
  }
  if (descriptors_.empty()) return std::nullopt;
  const std::string& name = *descriptors_.begin();
  Removal removal{{"closefd", {}, "{\"fdname\":" + qmp::quoted(name) + "}", {{"fdname", name}}},
                  {}};
  removal.plan = planFor(removal.request);
  return removal;
}

void Cards::begin(const qmp::Request& request) {
  if (request.execute == "netdev_add") isNew_ = netdevs_.insert(textOf(request, "id")).second;
  if (request.execute == "getfd") isNew_ = descriptors_.insert(textOf(request, "fdname")).second;
  // Bound from now on: what QEMU makes of it may be known late.
  if (request.execute == "netdev_set")
    cardByNetdev_[textOf(request, "netdevid")] = ourName(textOf(request, "nicid"));
}

void Cards::end(const qmp::Request& request, const std::vector<qmp::Saying>& sayings) {
  const bool refused = std::any_of(sayings.begin(), sayings.end(), [](const qmp::Saying& saying) {
    return saying.kind == qmp::Saying::Kind::refusal;
  });
  if (request.execute == "netdev_set" && refused) cardByNetdev_.erase(textOf(request, "netdevid"));
  if (request.execute == "netdev_add" && refused && isNew_) netdevs_.erase(textOf(request, "id"));
  if (request.execute == "netdev_add" && !refused) descriptors_.erase(textOf(request, "fd"));
  if (request.execute == "getfd" && refused && isNew_)
    descriptors_.erase(textOf(request, "fdname"));
  // Refused or not: QEMU refuses to delete only what is not there.
  if (request.execute == "closefd") descriptors_.erase(textOf(request, "fdname"));
  if (request.execute == "netdev_del") {
    cardByNetdev_.erase(textOf(request, "id"));
    netdevs_.erase(textOf(request, "id"));
  }
}

}  // namespace shim
