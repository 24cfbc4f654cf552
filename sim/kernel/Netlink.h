// What programs say to the kernel of network devices, and hear from it.
#pragma once

#include <deque>
#include <string>

#include "sim/kernel/Network.h"

namespace sim {

// AF_NETLINK, NETLINK_ROUTE: link dumps and news, adding and removing links and bridge entries.
class NetlinkSocket final : public File, public std::enable_shared_from_this<NetlinkSocket> {
 public:
  NetlinkSocket() = default;
  ~NetlinkSocket() override;

  void portIs(uint32_t port) { port_ = port; }
  uint32_t port() const { return port_; }
  Result join(int group);
  void roomIs(size_t bytes) { room_ = bytes; }

  // One or more requests; what is answered is to be read then.
  Result write(const char* from, size_t size) override;
  Result read(char* to, size_t size) override;
  // The whole size of a message, whatever fits, if that is asked for.
  Result receive(char* to, size_t size, int how);
  short ready() const override;
  std::string text() const override { return "socket:[netlink]"; }
  unsigned mode() const override;

  // What became of a device.
  void hear(const Link& link, LinkNews news);

 private:
  void acknowledge(const char* request, Result error);
  void dump(const char* request);
  Result carryOut(const char* request, size_t size);
  void deliver(std::string message);

  uint32_t port_ = 0;
  bool listens_ = false;
  size_t room_ = 212'992;
  size_t used_ = 0;
  std::deque<std::string> waiting_;
  bool lost_ = false;  // what did not fit
  int pending_ = 0;    // news on their way
  Time lastNews_{};    // when the last of them comes
};

}  // namespace sim
