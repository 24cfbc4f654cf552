// A query's round trip through a session, beside a bare loop that writes and reads the same bytes.
#include <benchmark/benchmark.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/base/Trace.h"
#include "runtime/fakes/AllocationCounter.h"

namespace Vm {

namespace {

const std::string request = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";
const std::string reply = fakes::returnOf(
    "status", "{\"status\": \"running\", \"singlestep\": false, \"running\": true}");

// Both ends of a monitor socket.
struct Stream {
  Stream() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0)
      std::abort();
    near = ends[0];
    far = ends[1];
  }
  Stream(const Stream&) = delete;
  ~Stream() { ::close(far); }  // whoever watches `near` closes it

  int near;
  int far;
};

void send(int descriptor, const std::string& text) {
  const auto size = static_cast<ssize_t>(text.size());
  if (::write(descriptor, text.data(), text.size()) != size) std::abort();
}

// QEMU's part.
void receiveRequestAndReply(int descriptor) {
  std::array<char, 4096> buffer{};
  if (::read(descriptor, buffer.data(), buffer.size()) != static_cast<ssize_t>(request.size()))
    std::abort();
  send(descriptor, reply);
}

class Discard final : public rt::TraceSink {
 public:
  void write(const rt::TraceRecord& record) override { benchmark::DoNotOptimize(record); }
};

// A connected session that polls: its reader sees a result each time.
class Session {
 public:
  explicit Session(rt::TraceLevels levels) {
    rt::traceSinkIs(&discard_);
    rt::vmTrace().levelsIs(0);
    descriptor_->descriptorIs(stream_.near);
    descriptor_->nonBlockingIs(true);
    descriptor_->notifyOnReadableIs(true);
    session_ = rt::make<MonitorSm>(input_, output_, status_, descriptor_, manager_.clock());
    send(stream_.far,
         fakes::greeting() + fakes::returnOf("enter") + reply + fakes::returnOf("chardev", "[]"));
    manager_.turn();
    std::array<char, 4096> buffer{};
    if (::read(stream_.far, buffer.data(), buffer.size()) <= 0) std::abort();
    input_->cmdIs(MonitorCommand::queryStatus);
    rt::vmTrace().levelsIs(levels);
  }
  Session(const Session&) = delete;
  ~Session() {
    rt::traceSinkIs(nullptr);
    rt::vmTrace().levelsIs(rt::TraceHandle::defaultLevels);
  }

  void roundTrip() {
    input_->counterInc(1);
    receiveRequestAndReply(stream_.far);
    manager_.turn();
  }
  uint32_t results() const { return output_->counter(); }

 private:
  Discard discard_;
  Stream stream_;
  rt::ActivityManager manager_;
  const MonitorInput::Ptr input_ = rt::make<MonitorInput>(0U);
  const MonitorOutput::Ptr output_ = rt::make<MonitorOutput>(0U);
  const MonitorStatus::Ptr status_ =
      rt::make<MonitorStatus>(MonitorStatus::MonitorState::uninitialized);
  const rt::FileDescriptor::Ptr descriptor_ = rt::make<rt::FileDescriptor>("bench-monitor");
  MonitorSm::Ptr session_;
};

void roundTripBySession(benchmark::State& state, rt::TraceLevels levels) {
  Session session(levels);
  const uint32_t before = session.results();
  const size_t allocated = rt::fakes::allocations();
  for ([[maybe_unused]] auto _ : state) session.roundTrip();
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(rt::fakes::allocations() - allocated),
                         benchmark::Counter::kAvgIterations);
  if (session.results() - before != static_cast<uint32_t>(state.iterations()))
    state.SkipWithError("not every round trip gave a result");
}
BENCHMARK_CAPTURE(roundTripBySession, untraced, rt::TraceLevels(0))->Name("queryStatus/session");
BENCHMARK_CAPTURE(roundTripBySession, traced, rt::TraceHandle::defaultLevels)
    ->Name("queryStatus/session/defaultTrace");

// The same bytes and the same system calls: one write, one wait, reads until there is no more.
void roundTripByEpoll(benchmark::State& state) {
  const Stream stream;
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event wanted{EPOLLIN | EPOLLRDHUP, {.fd = stream.near}};
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, stream.near, &wanted) != 0) std::abort();
  std::array<char, 4096> buffer{};
  for ([[maybe_unused]] auto _ : state) {
    send(stream.near, request);
    receiveRequestAndReply(stream.far);
    epoll_event ready{};
    if (epoll_wait(epoll, &ready, 1, -1) != 1) std::abort();
    while (::read(ready.data.fd, buffer.data(), buffer.size()) > 0) {
    }
    benchmark::DoNotOptimize(buffer);
  }
  ::close(stream.near);
  ::close(epoll);
}
BENCHMARK(roundTripByEpoll)->Name("queryStatus/epoll");

}  // namespace

}  // namespace Vm
