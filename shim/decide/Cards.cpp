#include "shim/decide/Cards.h"

#include <algorithm>

#include "shim/decide/Arguments.h"

namespace shim {

namespace {

std::string textOf(const qmp::Request& request, const char* argument) {
  const auto found = request.texts.find(argument);
  return found == request.texts.end() ? std::string() : found->second;
}

std::string deletion(const std::string& id) { return "{\"id\":" + qmp::quoted(id) + "}"; }

std::string link(const std::string& name, bool isUp) {
  return "{\"name\":" + qmp::quoted(name) + ",\"up\":" + (isUp ? "true" : "false") + "}";
}

std::string hubPort(size_t hub, const std::string& id) {
  return "\"type\":\"hubport\",\"hubid\":" + std::to_string(hub) + ",\"id\":" + qmp::quoted(id);
}

std::string sinkId(const std::string& card) { return "sink-" + card; }

qmp::Request deletionOf(const std::string& netdev) {
  return {"netdev_del", {}, deletion(netdev), {{"id", netdev}}};
}

}  // namespace

bool Cards::isAbout(const std::string& execute) {
  constexpr std::string_view commands[] = {"getfd",   "netdev_add", "netdev_set", "set_link",
                                           "closefd", "netdev_del", setsLink};
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

void Cards::agentIs(std::map<std::string, std::string> names) {
  names_ = std::move(names);
  leftoverNetdevs_ = netdevs_;
  leftoverDescriptors_ = descriptors_;
}

void Cards::lineIs(const std::string& card, bool isUp) { links_[card].isLineUp = isUp; }

Cards::Link Cards::linkOf(const std::string& card) const {
  const auto found = links_.find(card);
  return found == links_.end() ? Link() : found->second;
}

void Cards::agentLinkIs(const std::string& card, bool isUp) {
  Link& link = links_[card];
  link.isAgentUp = isUp;
  link.isTold = link.isUp();
}

std::optional<Cards::Removal> Cards::linkToSet() const {
  for (const auto& [card, its] : links_)
    if (its.isTold != its.isUp())
      return Removal{{setsLink, {}, {}, {{"name", card}}, its.isUp()},
                     {{{"set_link", link(card, its.isUp())}}, {}}};
  return std::nullopt;
}

Plan Cards::planFor(const qmp::Request& request) const {
  if (request.execute == "netdev_set") return bindPlan(request);
  if (request.execute == "netdev_del") return deletionPlan(textOf(request, "id"));
  Plan plan{{{request.execute, request.arguments}}, {}};
  if (request.execute == "cont")
    for (const std::string& card : cards_)
      if (!netdevOf(card))
        plan.steps.insert(std::prev(plan.steps.end()), {"set_link", link(card, false)});
  if (request.execute == "set_link") {
    const std::string card = linkedCard(request);
    const bool isUp = request.up && linkOf(card).isLineUp;
    if (cardByNetdev_.contains(textOf(request, "name")))
      plan.steps.push_back({"set_link", link(card, isUp)});
    else if (!card.empty() && (names_ || isUp != request.up))
      plan.steps.front().arguments = link(card, isUp);
  }
  return plan;
}

// The card whose link a set_link is to set, of its netdev or by its name; empty for none.
std::string Cards::linkedCard(const qmp::Request& request) const {
  const auto bound = cardByNetdev_.find(textOf(request, "name"));
  return bound != cardByNetdev_.end() ? bound->second : ourName(textOf(request, "name"));
}

Plan Cards::deletionPlan(const std::string& id) const {
  Plan plan{{{"netdev_del", deletion(id)}}, {}};
  const auto bound = cardByNetdev_.find(id);
  if (bound == cardByNetdev_.end()) return plan;
  plan.steps.insert(plan.steps.begin(), {"netdev_del", deletion(hubPortId(id))});
  const std::string& card = bound->second;
  if (leftoverNetdevs_.contains(id) && !sinks_.contains(card))
    plan.steps.insert(plan.steps.begin(),
                      {"netdev_add", "{" + hubPort(hubOf(card), sinkId(card)) + "}"});
  return plan;
}

Plan Cards::bindPlan(const qmp::Request& request) const {
  const std::string card = ourName(textOf(request, "nicid"));
  const std::string netdev = textOf(request, "netdevid");
  if (card.empty())
    return {{},
            "the guest has no card '" + textOf(request, "nicid") + "'" +
                (names_ ? ": restart needed" : "")};
  if (const auto other = netdevOf(card))
    return {{}, "card '" + card + "' is bound to netdev '" + *other + "': delete that first"};
  if (const auto bound = cardByNetdev_.find(netdev); bound != cardByNetdev_.end())
    return {{}, "netdev '" + netdev + "' is bound to card '" + bound->second + "'"};
  return {{{"netdev_add", "{" + hubPort(hubOf(card), hubPortId(netdev)) +
                              ",\"netdev\":" + qmp::quoted(netdev) + "}"}},
          {}};
}

std::string Cards::ourName(const std::string& card) const {
  if (names_) {
    const auto found = names_->find(card);
    return found == names_->end() ? std::string() : found->second;
  }
  return std::find(cards_.begin(), cards_.end(), card) == cards_.end() ? std::string() : card;
}

size_t Cards::hubOf(const std::string& card) const {
  return static_cast<size_t>(std::find(cards_.begin(), cards_.end(), card) - cards_.begin());
}

// What one agent left bound stands in the way of another's netdev of that name, and of that card's.
// When the guest is let run, all that should be attached is.
bool Cards::isInTheWay(const std::string& leftover, const qmp::Request* next) const {
  const auto bound = cardByNetdev_.find(leftover);
  if (bound == cardByNetdev_.end()) return true;
  if (!next) return false;
  return next->execute == "cont" ||
         (next->execute == "netdev_add" && textOf(*next, "id") == leftover) ||
         (next->execute == "netdev_set" && ourName(textOf(*next, "nicid")) == bound->second);
}

std::optional<Cards::Removal> Cards::removalBefore(const qmp::Request* next) const {
  for (const std::string& netdev : leftoverNetdevs_)
    if (isInTheWay(netdev, next)) return Removal{deletionOf(netdev), deletionPlan(netdev)};
  for (const std::string& card : sinks_) {
    const bool isBound = netdevOf(card).has_value();
    if (!isBound && (!next || next->execute != "cont")) continue;
    Plan plan = deletionPlan(sinkId(card));
    if (!isBound) plan.steps.insert(plan.steps.begin(), {"set_link", link(card, false)});
    return Removal{deletionOf(sinkId(card)), std::move(plan)};
  }
  if (leftoverDescriptors_.empty()) return std::nullopt;
  const std::string& name = *leftoverDescriptors_.begin();
  Removal removal{{"closefd", {}, "{\"fdname\":" + qmp::quoted(name) + "}", {{"fdname", name}}},
                  {}};
  removal.plan = planFor(removal.request);
  return removal;
}

void Cards::begin(const qmp::Request& request) {
  beginLink(request);
  if (request.execute == "netdev_add") isNew_ = netdevs_.insert(textOf(request, "id")).second;
  if (request.execute == "getfd") isNew_ = descriptors_.insert(textOf(request, "fdname")).second;
  // Bound from now on: what QEMU makes of it may be known late.
  if (request.execute == "netdev_set")
    cardByNetdev_[textOf(request, "netdevid")] = ourName(textOf(request, "nicid"));
  if (request.execute != "netdev_del" || !leftoverNetdevs_.contains(textOf(request, "id"))) return;
  if (const auto bound = cardByNetdev_.find(textOf(request, "id")); bound != cardByNetdev_.end())
    sinks_.insert(bound->second);
}

// Told is told, whatever QEMU makes of it: it refuses only a card that it has not.
void Cards::beginLink(const qmp::Request& request) {
  if (request.execute == setsLink) links_[textOf(request, "name")].isTold = request.up;
  if (request.execute == "set_link")
    if (const std::string card = linkedCard(request); !card.empty()) agentLinkIs(card, request.up);
  if (request.execute == "cont")
    for (const std::string& card : cards_)
      if (!netdevOf(card)) agentLinkIs(card, false);
}

void Cards::end(const qmp::Request& request, const std::vector<qmp::Saying>& sayings) {
  const bool refused = std::any_of(sayings.begin(), sayings.end(), [](const qmp::Saying& saying) {
    return saying.kind == qmp::Saying::Kind::refusal;
  });
  if (request.execute == "netdev_set" && refused) cardByNetdev_.erase(textOf(request, "netdevid"));
  if (request.execute == "netdev_add" && refused && isNew_) forgetNetdev(textOf(request, "id"));
  if (request.execute == "netdev_add" && !refused) forgetDescriptor(textOf(request, "fd"));
  if (request.execute == "getfd" && refused && isNew_) forgetDescriptor(textOf(request, "fdname"));
  // Refused or not: QEMU refuses to delete only what is not there.
  if (request.execute == "closefd") forgetDescriptor(textOf(request, "fdname"));
  if (request.execute == "netdev_del") forgetNetdev(textOf(request, "id"));
}

void Cards::forgetNetdev(const std::string& id) {
  cardByNetdev_.erase(id);
  netdevs_.erase(id);
  leftoverNetdevs_.erase(id);
  std::erase_if(sinks_, [&](const std::string& card) { return sinkId(card) == id; });
}

void Cards::forgetDescriptor(const std::string& name) {
  descriptors_.erase(name);
  leftoverDescriptors_.erase(name);
}

}  // namespace shim
