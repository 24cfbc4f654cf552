#include "shim/keep/Poller.h"

#include <sys/epoll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <span>

namespace shim {

namespace {

bool has(const fd_set& set, int number) {
  return number >= 0 && number < FD_SETSIZE && FD_ISSET(number, &set);
}

// The same, however many there are; of an end it says that something can be read.
int selectOf(std::span<pollfd> polled, int timeout) {
  fd_set readable;
  fd_set writable;
  FD_ZERO(&readable);
  FD_ZERO(&writable);
  int end = 0;
  for (const pollfd& each : polled) {
    if (each.fd < 0 || each.fd >= FD_SETSIZE) continue;
    if ((each.events & POLLIN) != 0) FD_SET(each.fd, &readable);
    if ((each.events & POLLOUT) != 0) FD_SET(each.fd, &writable);
    end = std::max(end, each.fd + 1);
  }
  timeval time{timeout / 1000, timeout % 1000 * 1000};
  const int ready = select(end, &readable, &writable, nullptr, timeout < 0 ? nullptr : &time);
  for (pollfd& each : polled) {
    const bool came = ready > 0;
    each.revents = static_cast<short>((came && has(readable, each.fd) ? POLLIN : 0) |
                                      (came && has(writable, each.fd) ? POLLOUT : 0));
  }
  return ready;
}

// A process that may not open so many descriptors, because its limit was lowered since it had them,
// is refused a look at them by poll().
int pollOf(std::span<pollfd> polled, int timeout) {
  const int ready = poll(polled.data(), polled.size(), timeout);
  return ready < 0 && errno == EINVAL ? selectOf(polled, timeout) : ready;
}

}  // namespace

int Poller::wait(std::vector<pollfd>& polled, int timeout) {
  if (others_ && !isWatched(polled)) others_.reset();
  if (!others_) return waitForAll(polled, timeout);
  const auto busy = std::span(polled).first(busy_);
  std::vector<pollfd> few(busy.begin(), busy.end());
  few.push_back({others_.number(), POLLIN, 0});
  const int ready = pollOf(few, timeout);
  if (ready > 0 && few.back().revents != 0) {
    others_.reset();
    return pollOf(polled, 0);
  }
  for (size_t i = 0; i < polled.size(); ++i)
    polled[i].revents = i < busy_ ? few[i].revents : short{0};
  return ready;
}

int Poller::waitForAll(std::vector<pollfd>& polled, int timeout) {
  const int ready = pollOf(polled, timeout);
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
