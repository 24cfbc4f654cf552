#include "sim/kernel/UnixDatagram.h"

namespace sim {

Result UnixDatagram::bind(const InodePtr& node, std::string path) {
  if (!path_.empty()) return -EINVAL;
  path_ = std::move(path);
  node->datagrams = weak_from_this();
  return 0;
}

Result UnixDatagram::connect(const InodePtr& node) {
  const auto other = node->datagrams.lock();
  if (!other) return node->listener.expired() ? -ECONNREFUSED : -EPROTOTYPE;
  peer_ = other;
  return 0;
}

Result UnixDatagram::write(const char* /*from*/, size_t size) {
  return peer_.expired() ? -ENOTCONN : static_cast<Result>(size);
}

}  // namespace sim
