#include "tests/system/Frames.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

namespace host::fakes {

FrameSource::FrameSource(const std::string& device)
    : device_(static_cast<int>(if_nametoindex(device.c_str()))),
      socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {}

bool FrameSource::send(const std::string& to, const std::string& from, size_t size) const {
  const auto receiver = rt::EthAddr(rt::String(to)).bytes();
  const auto sender = rt::EthAddr(rt::String(from)).bytes();
  ether_header header{};
  std::memcpy(header.ether_dhost, receiver.data(), receiver.size());
  std::memcpy(header.ether_shost, sender.data(), sender.size());
  header.ether_type = htons(0x88b5);
  std::vector<char> frame(size);
  std::memcpy(frame.data(), &header, sizeof header);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = device_;
  return sendto(socket_.number(), frame.data(), frame.size(), 0,
                reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == static_cast<ssize_t>(frame.size());
}

}  // namespace host::fakes
