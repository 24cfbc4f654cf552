// The network of one QEMU: cards, hubs, and what is behind them.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/kernel/Network.h"

namespace sim {

// As QEMU 7.2 has it, for as much as a shim asks for. A refusal is a class and a sentence.
class QemuDevices {
 public:
  struct Refusal {
    std::string kind;
    std::string text;
  };
  using Answer = std::optional<Refusal>;

  struct Card {
    std::string mac;
    std::string netdev;  // a hub's port
  };

  void addCard(const std::string& id, const Card& card) { cards_[id] = card; }
  void addHubPort(const std::string& id, const std::string& hub) { netdevs_[id] = {hub, {}, {}}; }

  // A descriptor came under that name; what had the name is closed.
  void keep(const std::string& name, const FilePtr& file) { files_[name] = file; }
  Answer closeFile(const std::string& name);
  Answer addTap(const std::string& id, const std::string& fileName);
  Answer addPort(const std::string& id, const std::string& hub, const std::string& peer);
  Answer remove(const std::string& id);
  Answer setLink(const std::string& name, bool up);

  const std::map<std::string, Card>& cards() const { return cards_; }
  // Whether frames of that card reach a device of the machine's.
  bool isConnected(const std::string& card) const;
  // Whether there is anything in its hub but itself: else it has no carrier.
  bool hasPeer(const std::string& card) const;
  // The taps that it holds.
  std::vector<const Link*> taps() const;
  bool hasLink(const std::string& name) const { return !down_.contains(name); }
  // A second port of one netdev ends QEMU.
  bool hasAborted() const { return aborted_; }

 private:
  struct Netdev {
    std::string hub;   // of a port; empty: none
    std::string peer;  // that it stands for in its hub
    FilePtr tap;
  };

  std::map<std::string, Card> cards_;
  std::map<std::string, Netdev> netdevs_;
  std::map<std::string, FilePtr> files_;
  std::set<std::string> down_;
  bool aborted_ = false;
};

}  // namespace sim
