#include "shim/Poller.h"

#include <sys/epoll.h>

#include <algorithm>
#include <span>

namespace shim {

int Poller::wait(std::vector<pollfd>& polled, int timeout) {
  if (others_ && !isWatched(polled)) others_.reset();
  if (!others_) return waitForAll(polled, timeout);
  const auto busy = std::span(polled).first(busy_);
  std::vector<pollfd> few(busy.begin(), busy.end());
  few.push_back({others_.number(), POLLIN, 0});
  const int ready = poll(few.data(), few.size(), timeout);
  if (ready > 0 && few.back().revents != 0) {
    others_.reset();
    return poll(polled.data(), polled.size(), 0);
  }
  for (size_t i = 0; i < polled.size(); ++i)
    polled[i].revents = i < busy_ ? few[i].revents : short{0};
  return ready;
}

int Poller::waitForAll(std::vector<pollfd>& polled, int timeout) {
  const int ready = poll(polled.data(), polled.size(), timeout);
  const auto others = std::span(polled).subspan(busy_);
  const bool areQuiet = std::all_of(others.begin(), others.end(),
                                    [](const pollfd& each) { return each.revents == 0; });
  if (ready >= 0 && areQuiet) watch(polled);
  return ready;
}

bool Poller::isWatched(const std::vector<pollfd>& polled) const {
  const auto others = std::span(polled).subspan(busy_);
  return std::equal(
      others.begin(), others.end(), watched_.begin(), watched_.end(),
      [](const pollfd& a, const pollfd& b) { return a.fd == b.fd && a.events == b.events; });
}

// Where it cannot be, all are looked at as before.
void Poller::watch(const std::vector<pollfd>& polled) {
  const auto others = std::span(polled).subspan(busy_);
  watched_.assign(others.begin(), others.end());
  others_.reset(epoll_create1(EPOLL_CLOEXEC));
  for (const pollfd& each : watched_) {
    if (!others_) return;
    if (each.fd < 0) continue;
    epoll_event event{};
    event.events = static_cast<uint32_t>(each.events);  // the bits are the same
    if (epoll_ctl(others_.number(), EPOLL_CTL_ADD, each.fd, &event) != 0) others_.reset();
  }
}

}  // namespace shim
