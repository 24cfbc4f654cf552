#include "sim/kernel/Netlink.h"

#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "sim/kernel/Machine.h"

namespace sim {

namespace {

constexpr size_t messageCost = 768;  // of the kernel's own, for each
constexpr size_t longestDumpPart = 16 * 1024;

// Puts a message together.
class Message {
 public:
  Message(uint16_t type, uint16_t flags, uint32_t sequence, uint32_t port) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = port;
    append(&header, sizeof header);
  }

  void append(const void* bytes, size_t size) {
    text_.append(static_cast<const char*>(bytes), size);
    text_.resize(NLMSG_ALIGN(text_.size()));
  }
  void attribute(uint16_t type, const void* bytes, size_t size) {
    rtattr head{static_cast<uint16_t>(RTA_LENGTH(size)), type};
    text_.append(reinterpret_cast<const char*>(&head), sizeof head);
    append(bytes, size);
  }
  void attribute(uint16_t type, const std::string& text) {
    attribute(type, text.c_str(), text.size() + 1);
  }
  void attribute(uint16_t type, uint32_t number) { attribute(type, &number, sizeof number); }
  size_t nest(uint16_t type) {
    const size_t at = text_.size();
    attribute(type, nullptr, 0);
    return at;
  }
  void endNest(size_t at) {
    const auto length = static_cast<uint16_t>(text_.size() - at);
    std::memcpy(text_.data() + at, &length, sizeof length);
  }
  std::string text() {
    const auto length = static_cast<uint32_t>(text_.size());
    std::memcpy(text_.data(), &length, sizeof length);
    return text_;
  }

 private:
  std::string text_;
};

nlmsghdr headerOf(const char* request) {
  nlmsghdr header{};
  std::memcpy(&header, request, sizeof header);
  return header;
}

std::string linkMessage(const Link& link, uint16_t type, uint16_t flags, uint32_t sequence,
                        uint32_t port) {
  Message message(type, flags, sequence, port);
  ifinfomsg info{};
  info.ifi_family = AF_UNSPEC;
  info.ifi_type = (link.flags & IFF_LOOPBACK) != 0 ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
  info.ifi_index = static_cast<int>(link.index);
  info.ifi_flags = link.flags;
  message.append(&info, sizeof info);
  message.attribute(IFLA_IFNAME, link.name);
  constexpr uint32_t mtu = 1500;
  message.attribute(IFLA_MTU, mtu);
  constexpr uint8_t operDown = 2;
  constexpr uint8_t operUp = 6;
  const uint8_t state = (link.flags & IFF_RUNNING) != 0 ? operUp : operDown;
  message.attribute(IFLA_OPERSTATE, &state, sizeof state);
  const uint8_t carrier = (link.flags & IFF_RUNNING) != 0 ? 1 : 0;
  message.attribute(IFLA_CARRIER, &carrier, sizeof carrier);
  message.attribute(IFLA_ADDRESS, link.mac.data(), link.mac.size());
  if (link.lower != 0) message.attribute(IFLA_LINK, link.lower);
  if (!link.kind.empty()) {
    const size_t nest = message.nest(IFLA_LINKINFO);
    message.attribute(IFLA_INFO_KIND, link.kind);
    if (link.isTap()) {
      const size_t data = message.nest(IFLA_INFO_DATA);
      message.attribute(IFLA_MACVLAN_MODE, link.mode);
      message.endNest(data);
    }
    message.endNest(nest);
  }
  return message.text();
}

// The attributes that follow one another; of two of a type the later counts.
class Attributes {
 public:
  Attributes(const char* bytes, size_t size) {
    while (size >= sizeof(rtattr)) {
      rtattr head{};
      std::memcpy(&head, bytes, sizeof head);
      if (head.rta_len < sizeof head || head.rta_len > size) break;
      values_[head.rta_type & NLA_TYPE_MASK] = {bytes + sizeof head, head.rta_len - sizeof head};
      const size_t step = std::min<size_t>(RTA_ALIGN(head.rta_len), size);
      bytes += step;
      size -= step;
    }
  }

  std::optional<std::string_view> bytes(int type) const {
    const auto found = values_.find(type);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }
  std::string text(int type) const {
    const auto value = bytes(type).value_or("");
    return std::string(value.substr(0, value.find('\0')));
  }
  template <class T>
  T number(int type) const {
    T number{};
    if (const auto value = bytes(type); value && value->size() >= sizeof number)
      std::memcpy(&number, value->data(), sizeof number);
    return number;
  }
  Attributes nested(int type) const {
    const auto value = bytes(type).value_or("");
    return {value.data(), value.size()};
  }
  MacAddress mac(int type) const {
    MacAddress mac{};
    if (const auto value = bytes(type); value && value->size() == mac.size())
      std::memcpy(mac.data(), value->data(), mac.size());
    return mac;
  }

 private:
  std::map<int, std::string_view> values_;
};

Result changeLink(const ifinfomsg& info, const Attributes& attributes, uint16_t flags) {
  Network& network = machine().network;
  const std::string name = attributes.text(IFLA_IFNAME);
  const Link* const known =
      info.ifi_index > 0 ? network.find(static_cast<uint32_t>(info.ifi_index)) : network.find(name);
  if (known) {
    if ((flags & NLM_F_EXCL) != 0) return -EEXIST;
    if ((flags & NLM_F_CREATE) != 0 && attributes.bytes(IFLA_LINKINFO)) return -EOPNOTSUPP;
    return network.flagsAre(known->index,
                            (known->flags & ~info.ifi_change) | (info.ifi_flags & info.ifi_change));
  }
  if ((flags & NLM_F_CREATE) == 0) return -ENODEV;
  const Attributes kind = attributes.nested(IFLA_LINKINFO);
  Link link;
  link.name = name;
  link.kind = kind.text(IFLA_INFO_KIND);
  link.mac = attributes.mac(IFLA_ADDRESS);
  link.flags = IFF_BROADCAST | IFF_MULTICAST;
  link.lower = attributes.number<uint32_t>(IFLA_LINK);
  link.mode = kind.nested(IFLA_INFO_DATA).number<uint32_t>(IFLA_MACVLAN_MODE);
  return std::min<Result>(network.add(std::move(link)), 0);
}

Result removeLink(const ifinfomsg& info, const Attributes& attributes) {
  Network& network = machine().network;
  const Link* const found = info.ifi_index > 0 ? network.find(static_cast<uint32_t>(info.ifi_index))
                                               : network.find(attributes.text(IFLA_IFNAME));
  if (info.ifi_index <= 0 && attributes.text(IFLA_IFNAME).empty()) return -EINVAL;
  if (!found) return -ENODEV;
  if (found->kind.empty()) return -EOPNOTSUPP;
  return network.remove(found->index);
}

}  // namespace

NetlinkSocket::~NetlinkSocket() { machine().network.removeListener(*this); }

Result NetlinkSocket::join(int group) {
  if (group != RTNLGRP_LINK) return 0;
  if (!listens_) machine().network.addListener(*this);
  listens_ = true;
  return 0;
}

Result NetlinkSocket::write(const char* from, size_t size) {
  for (size_t at = 0; at + sizeof(nlmsghdr) <= size;) {
    const nlmsghdr header = headerOf(from + at);
    if (header.nlmsg_len < sizeof header || at + header.nlmsg_len > size) return -EINVAL;
    if ((header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP && header.nlmsg_type == RTM_GETLINK) {
      dump(from + at);
    } else {
      const Result result = carryOut(from + at, header.nlmsg_len);
      if (result != 0 || (header.nlmsg_flags & NLM_F_ACK) != 0) acknowledge(from + at, result);
    }
    at += NLMSG_ALIGN(header.nlmsg_len);
  }
  return static_cast<Result>(size);
}

Result NetlinkSocket::carryOut(const char* request, size_t size) {
  const nlmsghdr header = headerOf(request);
  const bool isOfLink = header.nlmsg_type == RTM_NEWLINK || header.nlmsg_type == RTM_DELLINK ||
                        header.nlmsg_type == RTM_GETLINK;
  const size_t headSize = isOfLink ? sizeof(ifinfomsg) : sizeof(ndmsg);
  const size_t from = NLMSG_LENGTH(headSize);
  if (size < from) return -EINVAL;
  const Attributes attributes(request + from, size - from);
  if (isOfLink) {
    ifinfomsg info{};
    std::memcpy(&info, request + NLMSG_HDRLEN, sizeof info);
    if (header.nlmsg_type == RTM_NEWLINK) return changeLink(info, attributes, header.nlmsg_flags);
    if (header.nlmsg_type == RTM_DELLINK) return removeLink(info, attributes);
    const Link* const found = info.ifi_index > 0
                                  ? machine().network.find(static_cast<uint32_t>(info.ifi_index))
                                  : machine().network.find(attributes.text(IFLA_IFNAME));
    if (!found) return -ENODEV;
    deliver(linkMessage(*found, RTM_NEWLINK, 0, header.nlmsg_seq, port_));
    return 0;
  }
  ndmsg neighbour{};
  std::memcpy(&neighbour, request + NLMSG_HDRLEN, sizeof neighbour);
  const auto bridge = static_cast<uint32_t>(neighbour.ndm_ifindex);
  const MacAddress mac = attributes.mac(NDA_LLADDR);
  const auto vlan = attributes.number<uint16_t>(NDA_VLAN);
  if (header.nlmsg_type == RTM_NEWNEIGH) return machine().network.addEntry(bridge, mac, vlan);
  if (header.nlmsg_type == RTM_DELNEIGH) return machine().network.removeEntry(bridge, mac, vlan);
  return -EOPNOTSUPP;
}

void NetlinkSocket::acknowledge(const char* request, Result error) {
  const nlmsghdr header = headerOf(request);
  Message message(NLMSG_ERROR, 0, header.nlmsg_seq, port_);
  nlmsgerr answer{};
  answer.error = static_cast<int>(error);
  answer.msg = header;
  message.append(&answer, sizeof answer);
  deliver(message.text());
}

void NetlinkSocket::dump(const char* request) {
  const nlmsghdr header = headerOf(request);
  std::string part;
  for (const auto& [index, link] : machine().network.links()) {
    part += linkMessage(link, RTM_NEWLINK, NLM_F_MULTI, header.nlmsg_seq, port_);
    if (part.size() > longestDumpPart) deliver(std::exchange(part, {}));
  }
  if (!part.empty()) deliver(part);
  Message end(NLMSG_DONE, NLM_F_MULTI, header.nlmsg_seq, port_);
  const int status = 0;
  end.append(&status, sizeof status);
  deliver(end.text());
}

void NetlinkSocket::hear(const Link& link, LinkNews news) {
  std::string message =
      linkMessage(link, news == LinkNews::gone ? RTM_DELLINK : RTM_NEWLINK, 0, 0, 0);
  const auto& newsDelay = machine().network.newsDelay;
  const Duration delay = newsDelay ? newsDelay() : Duration::zero();
  if (delay == Duration::zero() && pending_ == 0) return deliver(std::move(message));
  ++pending_;
  const std::weak_ptr<NetlinkSocket> self = weak_from_this();
  lastNews_ = std::max(lastNews_, machine().now() + delay);
  machine().scheduler.timers().add(lastNews_, [self, message] {
    const auto socket = self.lock();
    if (!socket) return;
    --socket->pending_;
    socket->deliver(message);
  });
}

void NetlinkSocket::deliver(std::string message) {
  if (used_ + message.size() + messageCost > room_) {
    lost_ = true;
  } else {
    used_ += message.size() + messageCost;
    waiting_.push_back(std::move(message));
  }
  changed.wake();
}

Result NetlinkSocket::read(char* to, size_t size) { return receive(to, size, 0); }

Result NetlinkSocket::receive(char* to, size_t size, int how) {
  if (std::exchange(lost_, false)) return -ENOBUFS;
  if (waiting_.empty()) return -EAGAIN;
  const std::string& first = waiting_.front();
  const size_t whole = first.size();
  const size_t count = std::min(size, whole);
  std::memcpy(to, first.data(), count);
  if ((how & MSG_PEEK) == 0) {
    used_ -= whole + messageCost;
    waiting_.pop_front();
  }
  return static_cast<Result>((how & MSG_TRUNC) != 0 ? whole : count);
}

short NetlinkSocket::ready() const {
  return static_cast<short>(POLLOUT | (lost_ ? POLLERR : 0) | (waiting_.empty() ? 0 : POLLIN));
}

unsigned NetlinkSocket::mode() const { return S_IFSOCK | 0777U; }

}  // namespace sim
