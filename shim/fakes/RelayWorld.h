// A relay between an agent and a QEMU that both have memory, on a clock that moves when told.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "shim/decide/Relay.h"
#include "shim/fakes/FakeQemu.h"

namespace shim::fakes {

// What the agent asks QEMU for now and then, and what it is told when something was done.
inline constexpr char queryStatus[] = R"({ "execute": "query-status","id": "status" })";
inline std::string done(const std::string& id) {
  return "{\"return\": {}, \"id\": \"" + id + "\"}\r\n";
}

class RelayWorld {
 public:
  explicit RelayWorld(const std::vector<std::string>& cards = {"net0", "net1"});

  // A world whose QEMU has greeted and whose agent is connected and was greeted.
  void begin();

  void connectAgent() { perform(relay.agentConnected()); }
  void disconnectAgent() { perform(relay.agentGone()); }
  // Another agent is to take this one's place, with names of its own for the cards.
  void adopt(const std::map<std::string, std::string>& names) { perform(relay.adopt(now, names)); }
  // The agent sends that line; what it hears until QEMU has nothing more to say.
  std::vector<std::string> ask(const std::string& line, rt::Descriptors descriptors = {});
  // The literal requests of a card's attachment and detachment; what the agent hears.
  std::vector<std::string> attach(const std::string& card, const std::string& netdev);
  std::vector<std::string> detach(const std::string& netdev);
  // Somebody wants to see the guest's screen, if the relay takes one now.
  void addViewer(rt::Descriptor viewer) {
    if (relay.takesViewer()) perform(relay.addViewer(now, std::move(viewer)));
  }
  // An operator wants that, the first time under the number 1.
  void wish(Wish wish) { perform(relay.wish(now, ++wishes_, std::move(wish))); }
  // The daemon tells of the card's line.
  void lineIs(const std::string& card, bool isUp) { perform(relay.lineIs(now, card, isUp)); }
  // The guest's power button is pressed.
  void powerDown() { perform(relay.powerDown()); }
  // What came of wishes since the last call: "1", or "1: REFUSAL".
  std::vector<std::string> takeOutcomes() { return std::exchange(outcomes_, {}); }
  // QEMU says what nobody asked for.
  void qemuSays(const std::string& text) { perform(relay.qemuSays(now, text)); }
  // The clock moves on, from one of the relay's deadlines to the next.
  void pass(Duration time);
  // QEMU goes on.
  void qemuGoes();

  // What the agent heard since the last call, as lines with their ends.
  std::vector<std::string> heard();

  Time now{1'000};
  Relay relay;
  FakeQemu qemu;
  std::vector<std::string> log;
  std::vector<std::string> problems;
  std::vector<std::string> kills;
  std::vector<GuestEvent> events;

 private:
  void perform(Actions actions);
  void letQemuSpeak();

  std::vector<std::string> heard_;
  std::vector<std::string> outcomes_;
  uint64_t wishes_ = 0;
};

// An open file that only this descriptor holds; its other end tells whether it was closed.
struct Probe {
  Probe();
  bool isClosed() const;

  rt::Descriptor given;
  rt::Descriptor kept;
};

}  // namespace shim::fakes
