#include "sim/kernel/Inotify.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr size_t mostEvents = 16384;

// As the kernel pads names.
size_t paddedSize(const std::string& entry) {
  return entry.empty() ? 0 : (entry.size() / sizeof(inotify_event) + 1) * sizeof(inotify_event);
}

}  // namespace

InotifyFile::~InotifyFile() {
  for (const auto& [number, inode] : watched_)
    if (const InodePtr watched = inode.lock())
      std::erase_if(watched->watches, [&](const auto& each) { return each.listener == this; });
}

Result InotifyFile::watch(const InodePtr& inode, uint32_t mask) {
  if ((mask & IN_ONLYDIR) != 0 && !inode->isDirectory()) return -ENOTDIR;
  for (Inode::Watch& each : inode->watches) {
    if (each.listener != this) continue;
    each.mask = mask;
    return each.number;
  }
  inode->watches.push_back({this, ++lastNumber_, mask});
  watched_[lastNumber_] = inode;
  return lastNumber_;
}

Result InotifyFile::unwatch(int number) {
  const auto found = watched_.find(number);
  if (found == watched_.end()) return -EINVAL;
  if (const InodePtr watched = found->second.lock())
    std::erase_if(watched->watches,
                  [&](const auto& each) { return each.listener == this && each.number == number; });
  end(number);
  return 0;
}

void InotifyFile::add(int number, uint32_t event, uint32_t cookie, const std::string& entry) {
  if (events_.size() > mostEvents) return;
  Event next{number, event, cookie, entry};
  if (events_.size() == mostEvents) next = {-1, IN_Q_OVERFLOW, 0, ""};
  if (!events_.empty() && events_.back() == next) return;
  events_.push_back(std::move(next));
  changed.wake();
}

void InotifyFile::end(int number) {
  watched_.erase(number);
  add(number, IN_IGNORED, 0, "");
}

Result InotifyFile::read(char* to, size_t size) {
  if (events_.empty()) return -EAGAIN;
  size_t used = 0;
  while (!events_.empty()) {
    const Event& next = events_.front();
    const size_t needed = sizeof(inotify_event) + paddedSize(next.entry);
    if (used + needed > size) break;
    inotify_event head{};
    head.wd = next.number;
    head.mask = next.mask;
    head.cookie = next.cookie;
    head.len = static_cast<uint32_t>(paddedSize(next.entry));
    std::memset(to + used, 0, needed);
    std::memcpy(to + used, &head, sizeof head);
    std::memcpy(to + used + sizeof head, next.entry.data(), next.entry.size());
    used += needed;
    events_.pop_front();
  }
  return used == 0 ? -EINVAL : static_cast<Result>(used);
}

}  // namespace sim
