#include "runtime/loop/DescriptorWatcher.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <limits>

#include "runtime/base/Exception.h"
#include "runtime/loop/FileDescriptor.h"

namespace rt {

namespace {

constexpr int maxReady = 64;
constexpr std::chrono::milliseconds pipeEndGrace{5};
constexpr Seconds forEver{1e9};  // the kernel counts to less than a double can say

bool isPipe(int number) {
  struct stat status {};
  return fstat(number, &status) == 0 && S_ISFIFO(status.st_mode);
}

// Rounded up, else a wait that ends a little too early would be followed by an empty turn.
timespec exactly(Seconds atMost) {
  timespec timeout{};
  const double seconds = std::floor(atMost.value());
  timeout.tv_sec = static_cast<time_t>(seconds);
  timeout.tv_nsec =
      std::min(999'999'999L, std::lround(std::ceil((atMost.value() - seconds) * 1e9)));
  return timeout;
}

// Likewise. What is too long is waited for in parts.
int inMilliseconds(Seconds atMost) {
  constexpr double most = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(most, std::ceil(atMost.value() * 1e3)));
}

}  // namespace

DescriptorWatcher::DescriptorWatcher() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throw ErrnoException(errno, "epoll_create1");
}

DescriptorWatcher::~DescriptorWatcher() {
  for (auto& [id, watched] : watched_) watched.descriptor->watcher_ = nullptr;
}

void DescriptorWatcher::watch(FileDescriptor& descriptor, uint32_t events) {
  const bool known = descriptor.watcher_ != nullptr;
  const uint64_t id = known ? descriptor.watchId_ : nextId_++;
  const int number = descriptor.descriptor();
  epoll_event event{events, {.u64 = id}};
  if (epoll_ctl(epoll_.number(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, number, &event) < 0)
    throw ErrnoException(errno, "watch " + descriptor.name());
  if (known) return;
  descriptor.watcher_ = this;
  descriptor.watchId_ = id;
  watched_.emplace(id, Watched{&descriptor, number, isPipe(number)});
}

void DescriptorWatcher::unwatch(FileDescriptor& descriptor) {
  epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, descriptor.descriptor(), nullptr);
  watched_.erase(descriptor.watchId_);
  descriptor.watcher_ = nullptr;
}

const DescriptorWatcher::Watched* DescriptorWatcher::find(uint64_t id) const {
  const auto found = watched_.find(id);
  return found == watched_.end() ? nullptr : &found->second;
}

bool DescriptorWatcher::isPipeEnd(const Ready& ready) const {
  if ((ready.events & EPOLLHUP) == 0) return false;
  const Watched* const watched = find(ready.id);
  return watched && watched->pipe;
}

int DescriptorWatcher::waitFor(epoll_event* events, Seconds atMost) {
  if (!(atMost < forEver)) return epoll_wait(epoll_.number(), events, maxReady, -1);
  if (waitsExactly_) {
    const timespec timeout = exactly(atMost);
    const int count = epoll_pwait2(epoll_.number(), events, maxReady, &timeout, nullptr);
    waitsExactly_ = count >= 0 || errno != ENOSYS;
    if (waitsExactly_) return count;
  }
  return epoll_wait(epoll_.number(), events, maxReady, inMilliseconds(atMost));
}

bool DescriptorWatcher::wait(Seconds atMost) {
  epoll_event events[maxReady];
  const int count = waitFor(events, atMost);
  if (count < 0 && errno != EINTR) throw ErrnoException(errno, "epoll_wait");
  ready_.clear();
  found_ = std::max(count, 0);
  for (int i = 0; i < found_; ++i) ready_.push_back({events[i].data.u64, events[i].events});
  return !ready_.empty();
}

bool DescriptorWatcher::moreMayBeReady() const { return found_ == maxReady; }

void DescriptorWatcher::dispatch(FirstException& failures) {
  pipeEndsFirst();
  // Taken out first: a handler that runs the loop's functions must not disturb this round.
  const std::vector<Ready> round = std::exchange(ready_, {});
  for (const Ready& ready : round)
    if (const Watched* watched = find(ready.id))
      failures.run([&] { watched->descriptor->handleEvents(ready.events); });
}

void DescriptorWatcher::pipeEndsFirst() {
  size_t pipeEnds = 0;
  size_t streamEnds = 0;
  for (const Ready& ready : ready_) {
    if (isPipeEnd(ready)) ++pipeEnds;
    if (isStreamEnd(ready)) ++streamEnds;
  }
  if (streamEnds > pipeEnds) awaitPipeEnds(streamEnds - pipeEnds);
  for (const Ready& ready : ready_)
    if (isStreamEnd(ready)) watched_.at(ready.id).awaited = true;
  std::stable_partition(ready_.begin(), ready_.end(),
                        [this](const Ready& ready) { return isPipeEnd(ready); });
}

bool DescriptorWatcher::isStreamEnd(const Ready& ready) const {
  if ((ready.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) == 0) return false;
  const Watched* const watched = find(ready.id);
  return watched && !watched->pipe && !watched->awaited;
}

void DescriptorWatcher::awaitPipeEnds(size_t missing) {
  std::vector<pollfd> pipes;
  std::vector<uint64_t> ids;
  for (const auto& [id, watched] : watched_) {
    if (!watched.pipe || hasEnded(id)) continue;
    pipes.push_back({watched.number, 0, 0});  // no events asked for: only its end is told
    ids.push_back(id);
  }
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + pipeEndGrace;
  while (!pipes.empty() && missing > 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return;
    if (poll(pipes.data(), pipes.size(), static_cast<int>(left.count())) <= 0) continue;
    for (size_t i = 0; i < pipes.size(); ++i) {
      if (pipes[i].revents == 0) continue;
      std::erase_if(ready_, [&](const Ready& ready) { return ready.id == ids[i]; });
      ready_.push_back({ids[i], EPOLLHUP});
      pipes[i].fd = -1;  // found; poll() passes it over
      if (missing > 0) --missing;
    }
  }
}

bool DescriptorWatcher::hasEnded(uint64_t pipe) const {
  return std::any_of(ready_.begin(), ready_.end(), [this, pipe](const Ready& ready) {
    return ready.id == pipe && isPipeEnd(ready);
  });
}
}  // namespace rt
