#include "sim/models/QemuDevices.h"

#include <algorithm>

namespace sim {

namespace {

constexpr const char* generic = "GenericError";
constexpr const char* notFound = "DeviceNotFound";

const Link* linkOf(const FilePtr& file) {
  const auto tap = std::dynamic_pointer_cast<TapFile>(file);
  return tap ? tap->link() : nullptr;
}

std::string textOf(const MacAddress& mac) {
  std::string text;
  for (const uint8_t byte : mac) {
    constexpr const char* digits = "0123456789abcdef";
    if (!text.empty()) text += ':';
    text += digits[byte >> 4U];
    text += digits[byte & 0xfU];
  }
  return text;
}

}  // namespace

QemuDevices::Answer QemuDevices::closeFile(const std::string& name) {
  if (files_.erase(name) > 0) return std::nullopt;
  return Refusal{generic, "File descriptor named '" + name + "' not found"};
}

QemuDevices::Answer QemuDevices::addTap(const std::string& id, const std::string& fileName) {
  if (netdevs_.contains(id)) return Refusal{generic, "Duplicate ID '" + id + "'"};
  const auto found = files_.find(fileName);
  if (found == files_.end())
    return Refusal{generic, "File descriptor named '" + fileName + "' has not been found"};
  netdevs_[id] = {"", "", found->second};
  files_.erase(found);
  return std::nullopt;
}

QemuDevices::Answer QemuDevices::addPort(const std::string& id, const std::string& hub,
                                         const std::string& peer) {
  if (netdevs_.contains(id)) return Refusal{generic, "Duplicate ID '" + id + "'"};
  if (!peer.empty() && !netdevs_.contains(peer))
    return Refusal{generic, "netdev '" + peer + "' not found"};
  for (const auto& [other, netdev] : netdevs_)
    if (!peer.empty() && netdev.peer == peer) aborted_ = true;
  netdevs_[id] = {hub, peer, {}};
  return std::nullopt;
}

QemuDevices::Answer QemuDevices::remove(const std::string& id) {
  if (netdevs_.erase(id) == 0) return Refusal{notFound, "Device '" + id + "' not found"};
  down_.erase(id);
  return std::nullopt;
}

QemuDevices::Answer QemuDevices::setLink(const std::string& name, bool up) {
  if (!netdevs_.contains(name) && !cards_.contains(name))
    return Refusal{notFound, "Device '" + name + "' not found"};
  if (up)
    down_.erase(name);
  else
    down_.insert(name);
  return std::nullopt;
}

bool QemuDevices::isConnected(const std::string& card) const {
  const auto found = cards_.find(card);
  if (found == cards_.end() || !hasLink(card)) return false;
  const auto port = netdevs_.find(found->second.netdev);
  if (port == netdevs_.end()) return false;
  return std::any_of(netdevs_.begin(), netdevs_.end(), [&](const auto& each) {
    const Netdev& other = each.second;
    if (other.hub != port->second.hub || other.peer.empty()) return false;
    const auto peer = netdevs_.find(other.peer);
    if (peer == netdevs_.end() || !hasLink(other.peer)) return false;
    const Link* const link = linkOf(peer->second.tap);
    return link && link->isUp() && textOf(link->mac) == found->second.mac;
  });
}

bool QemuDevices::hasPeer(const std::string& card) const {
  const auto port = netdevs_.find(cards_.at(card).netdev);
  return port != netdevs_.end() &&
         std::any_of(netdevs_.begin(), netdevs_.end(), [&](const auto& each) {
           return each.first != port->first && each.second.hub == port->second.hub;
         });
}

std::vector<const Link*> QemuDevices::taps() const {
  std::vector<const Link*> all;
  for (const auto& [id, netdev] : netdevs_)
    if (const Link* const link = linkOf(netdev.tap)) all.push_back(link);
  for (const auto& [name, file] : files_)
    if (const Link* const link = linkOf(file)) all.push_back(link);
  return all;
}

}  // namespace sim
