// Local sockets for single messages, as far as they only show that somebody is there.
#pragma once

#include "sim/kernel/Inode.h"

namespace sim {

// AF_UNIX, SOCK_DGRAM. What is sent to one is nobody's.
class UnixDatagram final : public File, public std::enable_shared_from_this<UnixDatagram> {
 public:
  Result bind(const InodePtr& node, std::string path);
  Result connect(const InodePtr& node);

  Result write(const char* /*from*/, size_t size) override;
  short ready() const override { return POLLOUT; }
  std::string text() const override { return "socket:[datagram]"; }
  unsigned mode() const override { return S_IFSOCK | 0777U; }

 private:
  std::string path_;
  std::weak_ptr<UnixDatagram> peer_;
};

}  // namespace sim
