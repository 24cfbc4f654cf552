#include "shim/decide/PtyBacklog.h"

namespace shim {

bool PtyBacklog::add(std::string_view bytes) {
  if (waiting().size() + bytes.size() <= capacity) {
    bytes_ += bytes;
    return true;
  }
  bytes_ = std::string(waiting()) + std::string(bytes);
  taken_ = 0;
  bytes_.erase(0, bytes_.size() - capacity);
  return false;
}

void PtyBacklog::take(size_t count) {
  taken_ += count;
  if (taken_ < bytes_.size() && taken_ < capacity) return;
  bytes_.erase(0, taken_);
  taken_ = 0;
}

}  // namespace shim
