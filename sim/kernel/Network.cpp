#include "sim/kernel/Network.h"

#include <net/if.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>

#include "sim/kernel/Machine.h"
#include "sim/kernel/Netlink.h"

namespace sim {

namespace {

constexpr size_t longestName = 15;
constexpr unsigned tapMajor = 240;

bool isGoodName(const std::string& name) {
  return !name.empty() && name.size() <= longestName && name != "." && name != ".." &&
         name.find_first_of("/: \t\n") == std::string::npos;
}

std::string nodeOf(uint32_t index) { return "/dev/tap" + std::to_string(index); }

}  // namespace

bool Link::isUp() const { return (flags & IFF_UP) != 0; }

const Link* Network::find(uint32_t index) const {
  const auto found = links_.find(index);
  return found == links_.end() ? nullptr : &found->second;
}

const Link* Network::find(const std::string& name) const {
  for (const auto& [index, link] : links_)
    if (link.name == name) return &link;
  return nullptr;
}

uint32_t Network::freeIndex() {
  uint32_t index = reusesIndexes ? 2 : lastIndex_ + 1;
  while (links_.contains(index)) ++index;
  return index;
}

Result Network::add(Link link) {
  if (!isGoodName(link.name)) return -EINVAL;
  if (find(link.name)) return -EEXIST;
  if (link.index != 0 && links_.contains(link.index)) return -EBUSY;
  if (link.isTap() && !find(link.lower)) return -ENODEV;
  if (link.index == 0) link.index = freeIndex();
  lastIndex_ = std::max(lastIndex_, link.index);
  link.made = ++made_;
  if (const Process* const maker = machine().scheduler.current()) link.maker = maker->pid;
  const Link& made = links_[link.index] = std::move(link);
  tell(made, LinkNews::changed);
  if (made.isTap()) makeNode(made);
  return made.index;
}

// As the device manager does, a while later.
void Network::makeNode(const Link& link) {
  const Duration delay = nodeDelay ? nodeDelay(link) : Duration::zero();
  if (delay == never) return;
  const TapUse use{link.index, link.made};
  const auto make = [this, use] {
    const Link* const found = find(use.index);
    if (!found || found->made != use.made) return;
    machine().files.removeAt(nodeOf(use.index));
    const auto node = std::make_shared<Inode>(S_IFCHR | 0600U, machine().files.at("/dev")->device);
    node->represents = makedev(tapMajor, use.index);
    const std::weak_ptr<Inode> weak = node;
    node->open = [weak, use] { return std::make_shared<TapFile>(weak.lock(), use); };
    machine().files.put(nodeOf(use.index), node);
  };
  if (delay == Duration::zero())
    make();
  else
    machine().scheduler.after(delay, make);
}

Result Network::remove(uint32_t index) {
  const auto found = links_.find(index);
  if (found == links_.end()) return -ENODEV;
  std::vector<uint32_t> above;
  for (const auto& [other, link] : links_)
    if (link.lower == index) above.push_back(other);
  for (const uint32_t each : above) remove(each);
  if (removing) removing(found->second);
  const Link gone = found->second;
  links_.erase(found);
  if (gone.isTap()) machine().files.removeAt(nodeOf(index));
  tell(gone, LinkNews::gone);
  return 0;
}

Result Network::rename(uint32_t index, const std::string& name) {
  const auto found = links_.find(index);
  if (found == links_.end()) return -ENODEV;
  if (!isGoodName(name)) return -EINVAL;
  if (find(name)) return -EEXIST;
  found->second.name = name;
  tell(found->second, LinkNews::changed);
  return 0;
}

// Two of an address cannot both be up above one device.
bool Network::isTakenAbove(uint32_t lower, const MacAddress& mac, uint32_t except) const {
  const Link* const below = find(lower);
  if (below && below->mac == mac) return true;
  return std::any_of(links_.begin(), links_.end(), [&](const auto& each) {
    const Link& link = each.second;
    return link.index != except && link.lower == lower && link.isUp() && link.mac == mac;
  });
}

Result Network::flagsAre(uint32_t index, unsigned flags) {
  const auto found = links_.find(index);
  if (found == links_.end()) return -ENODEV;
  Link& link = found->second;
  const bool goesUp = (flags & IFF_UP) != 0 && !link.isUp();
  if (goesUp && link.isTap() && isTakenAbove(link.lower, link.mac, index)) return -EBUSY;
  if (link.flags == flags) return 0;
  link.flags = flags;
  tell(link, LinkNews::changed);
  return 0;
}

Result Network::addEntry(uint32_t bridge, const MacAddress& mac, uint16_t vlan) {
  const auto found = links_.find(bridge);
  if (found == links_.end()) return -ENODEV;
  Link& link = found->second;
  if (link.kind != "bridge") return -EOPNOTSUPP;
  if (vlan != 0 && (!link.filtersVlans || !link.vlans.contains(vlan))) return -EINVAL;
  return link.entries.insert({mac, vlan}).second ? 0 : -EEXIST;
}

Result Network::removeEntry(uint32_t bridge, const MacAddress& mac, uint16_t vlan) {
  const auto found = links_.find(bridge);
  if (found == links_.end()) return -ENODEV;
  Link& link = found->second;
  if (vlan != 0 && (!link.filtersVlans || !link.vlans.contains(vlan))) return -EINVAL;
  if (!link.entries.contains({mac, vlan})) return -ENOENT;
  if (removingEntry) removingEntry(bridge, mac, vlan);
  link.entries.erase({mac, vlan});
  return 0;
}

void Network::removeListener(NetlinkSocket& socket) {
  listeners_.erase(std::remove(listeners_.begin(), listeners_.end(), &socket), listeners_.end());
}

void Network::tell(const Link& link, LinkNews news) {
  for (NetlinkSocket* const each : listeners_) each->hear(link, news);
}

TapFile::TapFile(std::shared_ptr<Inode> node, Network::TapUse use)
    : node_(std::move(node)), use_(use) {}

unsigned TapFile::mode() const { return node_->mode; }

const Link* TapFile::link() const {
  const Link* const found = machine().network.find(use_.index);
  return found && found->made == use_.made ? found : nullptr;
}

}  // namespace sim
