// The loop: clock reactors, and descriptors beside a bare epoll.
#include <benchmark/benchmark.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>
#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"
#include "runtime/loop/FileDescriptor.h"

namespace rt::loopBench {

class TimerSm final : public StateMachineOf<TimerSm> {
 public:
  explicit TimerSm(const Clock::Ptr& clock) : timer_(*this, clock) {}

  void wakeUpIs(Seconds time) { timer_.timeMinIs(time); }
  void handleTime() { ++woken_; }
  uint64_t woken() const { return woken_; }

  static constexpr std::string_view typeName = "Bench::TimerSm";
  using Attributes = AttributeTable<Attribute<"initialized", &TimerSm::initialized>>;

 private:
  uint64_t woken_ = 0;
  ClockReactor<TimerSm, &TimerSm::handleTime> timer_;
};

// Machines with a clock reactor each, all silent; `order` says in which order they are set.
struct Timers {
  explicit Timers(int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
      machines.push_back(make<TimerSm>(clock));
      order.push_back(static_cast<double>(i + 1));
    }
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    fire();
  }
  void arm() {
    for (size_t i = 0; i < machines.size(); ++i)
      machines[i]->wakeUpIs(clock->now() + Seconds(order[i]));
  }
  void fire() {
    clock->nowIs(clock->now() + Seconds(static_cast<double>(machines.size())));
    clock->pass([] { return false; });
  }

  const Ptr<fakes::ManualClock> clock = make<fakes::ManualClock>();
  std::vector<Ptr<TimerSm>> machines;
  std::vector<double> order;
};

template <class Work>
double secondsOf(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void arm(benchmark::State& state) {
  Timers timers(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    state.SetIterationTime(secondsOf([&] { timers.arm(); }));
    timers.fire();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(arm)->Name("clock/arm")->Arg(10'000)->UseManualTime();

void fire(benchmark::State& state) {
  Timers timers(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    timers.arm();
    state.SetIterationTime(secondsOf([&] { timers.fire(); }));
  }
  // The first firing is that of the reactors' registration.
  if (timers.machines.front()->woken() != static_cast<uint64_t>(state.iterations()) + 1)
    state.SkipWithError("not every wake-up was told");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(fire)->Name("clock/fire")->Arg(10'000)->UseManualTime();

// One time-out is put off again and again, while others are set too.
void putOff(benchmark::State& state) {
  Timers timers(state.range(0));
  timers.arm();
  double later = 0;
  for ([[maybe_unused]] auto _ : state) {
    timers.machines.front()->wakeUpIs(timers.clock->now() + Seconds(later));
    later = later < 1e4 ? later + 0.5 : 0;
  }
}
BENCHMARK(putOff)->Name("clock/putOff")->Arg(10)->Arg(10'000);

void makeClockReactor(benchmark::State& state) {
  const auto clock = make<fakes::ManualClock>();
  const auto machine = make<TimerSm>(clock);
  using ItsReactor = ClockReactor<TimerSm, &TimerSm::handleTime>;
  for ([[maybe_unused]] auto _ : state) {
    ItsReactor reactor(*machine, clock);
    benchmark::DoNotOptimize(reactor);
  }
  state.counters["sizeof"] = sizeof(ItsReactor);
}
BENCHMARK(makeClockReactor)->Name("attach/clockReactor");

// Two ends of a stream; a byte that goes in at `far` comes out at `near`.
struct Stream {
  Stream() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    near = ends[0];
    far = ends[1];
  }
  Stream(const Stream&) = delete;
  ~Stream() { ::close(far); }  // whoever watches `near` closes it

  int near;
  int far;
};

void sendByte(int descriptor) {
  const char byte = 'x';
  if (::write(descriptor, &byte, 1) != 1) std::abort();
}

void receiveByte(int descriptor) {
  char byte = 0;
  if (::read(descriptor, &byte, 1) != 1) std::abort();
}

class EchoSm final : public StateMachineOf<EchoSm> {
 public:
  explicit EchoSm(int descriptor) : stream_(*this, make<FileDescriptor>("echo")) {
    stream_->descriptorIs(descriptor);
    stream_->notifyOnReadableIs(true);
  }

  static constexpr std::string_view typeName = "Bench::EchoSm";
  using Attributes = AttributeTable<Attribute<"initialized", &EchoSm::initialized>>;

 private:
  void handleReadable() {
    receiveByte(stream_->descriptor());
    sendByte(stream_->descriptor());
  }

  Reactor<EchoSm, FileDescriptor, On<&FileDescriptor::readable, &EchoSm::handleReadable>> stream_;
};

void roundTripByTurn(benchmark::State& state) {
  ActivityManager manager;
  const Stream stream;
  const auto machine = make<EchoSm>(stream.near);
  for ([[maybe_unused]] auto _ : state) {
    sendByte(stream.far);
    manager.turn();
    receiveByte(stream.far);
  }
}
BENCHMARK(roundTripByTurn)->Name("roundTrip/turn");

void roundTripByEpoll(benchmark::State& state) {
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  const Stream stream;
  epoll_event wanted{EPOLLIN | EPOLLRDHUP, {.fd = stream.near}};
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, stream.near, &wanted) != 0) std::abort();
  for ([[maybe_unused]] auto _ : state) {
    sendByte(stream.far);
    epoll_event ready{};
    if (epoll_wait(epoll, &ready, 1, -1) != 1) std::abort();
    receiveByte(ready.data.fd);
    sendByte(ready.data.fd);
    receiveByte(stream.far);
  }
  ::close(stream.near);
  ::close(epoll);
}
BENCHMARK(roundTripByEpoll)->Name("roundTrip/epoll");

}  // namespace rt::loopBench
