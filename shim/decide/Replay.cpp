#include "shim/decide/Replay.h"

#include <algorithm>

namespace shim {

void Replay::add(std::string_view bytes) {
  if (bytes.size() > capacity) bytes.remove_prefix(bytes.size() - capacity);
  if (bytes_.size() + bytes.size() > 2 * capacity)
    bytes_.erase(0, bytes_.size() + bytes.size() - capacity);
  bytes_ += bytes;
}

std::string_view Replay::newest() const {
  const std::string_view all = bytes_;
  return all.substr(all.size() - std::min(all.size(), capacity));
}

}  // namespace shim
