// The network devices of a machine.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sim/base/Time.h"
#include "sim/kernel/File.h"

namespace sim {

using MacAddress = std::array<uint8_t, 6>;

struct Link {
  uint32_t index = 0;
  std::string name;
  std::string kind;  // empty: a port of the switch
  MacAddress mac{};
  unsigned flags = 0;
  uint32_t lower = 0;  // of a macvtap: what it stands on
  uint32_t mode = 0;   // and how
  uint64_t made = 0;   // how many were made before: so one that has another's index is known
  int maker = 0;       // the process that made it; 0: none of this machine's programs
  // Of a bridge: its static entries, and the VLANs that it knows, if it looks at them.
  bool filtersVlans = false;
  std::set<uint16_t> vlans;
  std::set<std::pair<MacAddress, uint16_t>> entries;

  bool isUp() const;
  bool isTap() const { return kind == "macvtap"; }
};

enum class LinkNews { changed, gone };

class NetlinkSocket;

class Network {
 public:
  Network() = default;
  Network(const Network&) = delete;

  const std::map<uint32_t, Link>& links() const { return links_; }
  const Link* find(uint32_t index) const;
  const Link* find(const std::string& name) const;

  // Each tells who listens. -EEXIST, -ENODEV and so on.
  Result add(Link link);  // its index; 0 in `link`: the next one
  Result remove(uint32_t index);
  Result rename(uint32_t index, const std::string& name);
  Result flagsAre(uint32_t index, unsigned flags);
  Result addEntry(uint32_t bridge, const MacAddress& mac, uint16_t vlan);
  Result removeEntry(uint32_t bridge, const MacAddress& mac, uint16_t vlan);

  void addListener(NetlinkSocket& socket) { listeners_.push_back(&socket); }
  void removeListener(NetlinkSocket& socket);

  // How long after a tap was made its node in /dev is there; never: not at all.
  std::function<Duration(const Link&)> nodeDelay;
  // How long after something happened who listens hears of it.
  std::function<Duration()> newsDelay;
  // Told of what is removed, before it is gone.
  std::function<void(const Link&)> removing;
  std::function<void(uint32_t bridge, const MacAddress&, uint16_t vlan)> removingEntry;
  bool reusesIndexes = false;

  // An open tap is of that device, until it is gone.
  struct TapUse {
    uint32_t index;
    uint64_t made;
  };

 private:
  void tell(const Link& link, LinkNews news);
  void makeNode(const Link& link);
  uint32_t freeIndex();
  bool isTakenAbove(uint32_t lower, const MacAddress& mac, uint32_t except) const;

  std::map<uint32_t, Link> links_;
  std::vector<NetlinkSocket*> listeners_;
  uint32_t lastIndex_ = 1;
  uint64_t made_ = 0;
};

// The node of a tap, opened.
class TapFile final : public File {
 public:
  TapFile(std::shared_ptr<Inode> node, Network::TapUse use);
  Result read(char* /*to*/, size_t /*size*/) override { return -EAGAIN; }
  Result write(const char* /*from*/, size_t size) override { return static_cast<Result>(size); }
  short ready() const override { return POLLOUT; }
  std::shared_ptr<Inode> inode() const override { return node_; }
  std::string text() const override { return "/dev/tap" + std::to_string(use_.index); }
  unsigned mode() const override;
  // The device, while it is there.
  const Link* link() const;

 private:
  const std::shared_ptr<Inode> node_;
  const Network::TapUse use_;
};

}  // namespace sim
