#include "sim/kernel/Epoll.h"

#include <algorithm>

#include "sim/kernel/Machine.h"

namespace sim {

Result EpollFile::control(int operation, int number, const FilePtr& file,
                          const epoll_event& event) {
  const auto found = std::find_if(watched_.begin(), watched_.end(), [&](const auto& each) {
    return each.first.first == number && each.second.file.lock() == file;
  });
  if (operation == EPOLL_CTL_ADD) {
    if (found != watched_.end()) return -EEXIST;
    watched_[{number, file.get()}] = {file, event, ++lastOrder_};
    changed.wake();
    return 0;
  }
  if (found == watched_.end()) return -ENOENT;
  if (operation == EPOLL_CTL_DEL)
    watched_.erase(found);
  else
    found->second.event = event;
  changed.wake();
  return 0;
}

uint32_t EpollFile::eventsOf(const Watched& watched) {
  const FilePtr file = watched.file.lock();
  if (!file) return 0;
  constexpr uint32_t always = EPOLLERR | EPOLLHUP;
  return static_cast<uint32_t>(static_cast<unsigned short>(file->ready())) &
         (watched.event.events | always);
}

int EpollFile::collect(epoll_event* events, int most) {
  std::erase_if(watched_, [](const auto& each) { return each.second.file.expired(); });
  std::vector<const Watched*> found;
  for (const auto& [key, watched] : watched_)
    if (eventsOf(watched) != 0) found.push_back(&watched);
  std::sort(found.begin(), found.end(),
            [](const Watched* a, const Watched* b) { return a->order < b->order; });
  // Mildest: as they were added.
  Stream& choice = machine().choices.stream("epoll");
  for (size_t i = 0; i + 1 < found.size(); ++i)
    std::swap(found[i], found[i + choice.below(found.size() - i)]);
  const int count = std::min(most, static_cast<int>(found.size()));
  for (int i = 0; i < count; ++i) {
    events[i] = found[static_cast<size_t>(i)]->event;
    events[i].events = eventsOf(*found[static_cast<size_t>(i)]);
  }
  return count;
}

short EpollFile::ready() const {
  const bool any = std::any_of(watched_.begin(), watched_.end(),
                               [](const auto& each) { return eventsOf(each.second) != 0; });
  return any ? short{POLLIN} : short{0};
}

void EpollFile::queues(std::vector<WaitQueue*>& all) {
  all.push_back(&changed);
  for (const auto& [key, watched] : watched_)
    if (const FilePtr file = watched.file.lock()) file->queues(all);
}

}  // namespace sim
