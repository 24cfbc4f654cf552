// The guest's network cards, each on a hub of its own, and what is bound to them.
//
// A present-day QEMU cannot give a card another backend. So each card's backend is, for good, a
// port of a hub, and a netdev is bound to the card by a second port between the hub and it.
//
// What a guest sends to a hub without another port waits there, and nothing that comes later makes
// it go on: the card is deaf and dumb for good. So a card whose line is up never is without: while
// one agent's netdev is exchanged for the next one's, a sink stands in, a port to nothing.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "shim/decide/QmpText.h"

namespace shim {

// One request to QEMU.
struct Step {
  std::string execute;
  std::string arguments;  // as JSON; empty for none

  friend bool operator==(const Step&, const Step&) = default;
};

// What to ask QEMU for, all of it, in order; or why it cannot be asked.
struct Plan {
  std::vector<Step> steps;
  std::string refusal;

  friend bool operator==(const Plan&, const Plan&) = default;
};

class Cards {
 public:
  // `cards` are the ids of the cards, in the order of their hubs.
  explicit Cards(std::vector<std::string> cards) : cards_(std::move(cards)) {}

  // From now on another agent asks, which calls the cards otherwise: its name for each, and ours. A
  // card that is not among them is none of the guest's. What QEMU has by now is left over.
  void agentIs(std::map<std::string, std::string> names);

  // Whether the card's line is up, as the daemon says; until it says so, it is. The guest sees a
  // carrier where the agent has one for it, too.
  void lineIs(const std::string& card, bool isUp);

  // How what the agent asks for is asked of QEMU:
  //   netdev_set   a hub port; refused when the card or the netdev is bound, for QEMU aborts on a
  //                second port to one netdev
  //   set_link     of a bound netdev: of its card, too, so that the guest sees its carrier, which
  //   is
  //                none while the card's line is not up
  //   netdev_del   of a bound netdev: its hub port goes first; of one that is left over, only when
  //                the card has a sink in its place
  //   cont         the link of each card that is not bound goes down first: a guest sees no carrier
  //                at a card that nothing was ever attached to
  //   any other    as it is
  Plan planFor(const qmp::Request& request) const;

  // To be told when the request goes to QEMU, and what came of it.
  void begin(const qmp::Request& request);
  void end(const qmp::Request& request, const std::vector<qmp::Saying>& sayings);

  // What nobody asked for: a request, and how QEMU is asked.
  struct Removal {
    qmp::Request request;
    Plan plan;
  };
  // A link that QEMU was told otherwise than it is to be by now; nothing when none was.
  std::optional<Removal> linkToSet() const;
  // What an agent that is gone left in QEMU: a request that removes a part of it.
  // What is to go before the agent's next request, or before anything else may be asked for;
  // nothing when nothing is. A card keeps the netdev that it is bound to until the agent brings
  // another, so that the guest is cut off for as short as can be, or lets the guest run without
  // one.
  std::optional<Removal> removalBefore(const qmp::Request* next) const;

  // The request that linkToSet() makes, and no agent.
  static constexpr const char* setsLink = "line";

  // The netdev that the card is bound to.
  std::optional<std::string> netdevOf(const std::string& card) const;

  // Whether the command is about cards: those may be carried out later than they are answered.
  static bool isAbout(const std::string& execute);
  // Whether the agent must hear of success, or its card would stay half-way for ever.
  static bool alwaysSucceeds(const std::string& execute);

 private:
  // A card's link, by what QEMU was told.
  struct Link {
    bool isLineUp = true;
    bool isAgentUp = true;  // the agent's own
    bool isTold = true;     // QEMU's
    bool isUp() const { return isLineUp && isAgentUp; }
  };

  Link linkOf(const std::string& card) const;
  void agentLinkIs(const std::string& card, bool isUp);
  std::string linkedCard(const qmp::Request& request) const;
  void beginLink(const qmp::Request& request);
  Plan bindPlan(const qmp::Request& request) const;
  Plan deletionPlan(const std::string& id) const;
  bool isInTheWay(const std::string& leftover, const qmp::Request* next) const;
  size_t hubOf(const std::string& card) const;
  void forgetNetdev(const std::string& id);
  void forgetDescriptor(const std::string& name);
  // Our name for a card; empty for none of the guest's.
  std::string ourName(const std::string& card) const;

  const std::vector<std::string> cards_;
  std::optional<std::map<std::string, std::string>> names_;
  std::map<std::string, std::string> cardByNetdev_;
  // What QEMU has, or may come to have: netdevs, and descriptors that are no netdev's.
  std::set<std::string> netdevs_;
  std::set<std::string> descriptors_;
  // Of these, what an agent left that is gone.
  std::set<std::string> leftoverNetdevs_;
  std::set<std::string> leftoverDescriptors_;
  std::map<std::string, Link> links_;  // by card; one that is not there is up
  // The cards whose hub has a port that drops what comes.
  std::set<std::string> sinks_;
  bool isNew_ = false;  // what was asked for last is not there already
};

}  // namespace shim
