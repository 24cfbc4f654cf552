#include "shim/keep/StandIn.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <utility>

#include "shim/base/Failure.h"
#include "shim/box/Rights.h"
#include "shim/decide/ControlText.h"
#include "shim/keep/Keeper.h"
#include "shim/keep/ListeningSocket.h"
#include "shim/keep/QemuProcess.h"
#include "shim/keep/Sender.h"
#include "shim/keep/Wire.h"

namespace shim {

namespace {

using Kind = control::Saying::Kind;

// For a shim to answer; it does nothing that takes long.
constexpr Duration patience{2'000};
constexpr size_t longestSaying = 64 * 1024;

// What came of it.
struct Outcome {
  std::optional<int> waitStatus;  // of a guest that was taken over, and has ended since
  std::string refusal;
};

class Successor {
 public:
  Successor(rt::Descriptor connection, const std::vector<std::string>& arguments,
            const Parent& parent, rt::Descriptor& listener)
      : wire_(std::move(connection), longestSaying),
        arguments_(arguments),
        parent_(parent),
        listener_(listener) {
    const sigset_t set = keeperSignals();
    signals_.reset(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!signals_) throw failureOf("signals cannot be read");
  }

  Outcome run() {
    const Time last = now() + patience;  // whatever else is said meanwhile
    while (!outcome_) {
      // A signal that comes before the guest is ours waits until it is.
      pollfd polled[] = {
          {wire_.number(), static_cast<short>(POLLIN | (wire_.isBlocked() ? POLLOUT : 0)), 0},
          {isTaken_ ? signals_.number() : -1, POLLIN, 0}};
      const Time left = std::max(last - now(), Time::zero());
      (void)poll(polled, 2, isTaken_ ? -1 : static_cast<int>(left.count()));
      wire_.flush();
      if (polled[0].revents != 0) receive();
      if (polled[1].revents != 0) takeSignals();
      if (!isTaken_ && !outcome_ && now() >= last)
        outcome_ = {std::nullopt, "its shim does not answer"};
    }
    return *outcome_;
  }

  // The signal of a stranger, for which the guest was ended; empty: none.
  const std::string& endedBy() const { return endedBy_; }

 private:
  void receive() {
    for (Message& message : wire_.receive())
      if (const auto saying = control::sayingFrom(message.text))
        hear(*saying, std::move(message.descriptors));
    if (outcome_ || !wire_.isClosed()) return;
    // Killed, and its QEMU with it.
    outcome_ = isTaken_ ? Outcome{W_EXITCODE(0, SIGKILL), {}}
                        : Outcome{std::nullopt, "its shim has ended"};
  }

  void hear(const control::Saying& saying, rt::Descriptors descriptors) {
    if (saying.kind == Kind::greeting && !isAsked_) ask(saying.greeting);
    // What is done later is a stop.
    if (saying.kind == Kind::done && isAsked_ && !std::exchange(isTaken_, true)) {
      keepOnlyRights({});
      // A shim that listens by itself, as older ones do, has the agent come to it.
      if (descriptors.empty()) hangUpAt(listener_);
      listener_ = descriptors.empty() ? rt::Descriptor() : std::move(descriptors.front());
    }
    if (saying.kind == Kind::error && !isTaken_) outcome_ = {std::nullopt, saying.error};
    if (saying.kind == Kind::end)
      outcome_ =
          isTaken_ ? Outcome{saying.waitStatus, {}} : Outcome{std::nullopt, "its guest has ended"};
  }

  void ask(const control::Greeting& greeting) {
    if (greeting.protocol != guest::shimProtocol)
      throw Failure("VM '" + greeting.vm + "' runs already, kept by process " +
                    std::to_string(greeting.pid) + ", which is of another version (" +
                    std::to_string(greeting.protocol) + " and not " +
                    std::to_string(guest::shimProtocol) + "): end that process first, with 'kill " +
                    std::to_string(greeting.pid) + "'");
    Message request{control::adoptLine({getpid(), parent_.pid(), arguments_}), {}};
    request.descriptors.push_back(parent_.process());
    if (!request.descriptors.front()) throw Failure("the daemon has ended");
    if (rt::Descriptor listener = copyOf(listener_))
      request.descriptors.push_back(std::move(listener));
    wire_.send(std::move(request));
    isAsked_ = true;
  }

  void takeSignals() {
    signalfd_siginfo told{};
    while (read(signals_.number(), &told, sizeof told) == sizeof told) {
      if (told.ssi_signo == SIGCHLD) continue;
      const auto sender = static_cast<pid_t>(told.ssi_pid);
      if (sender != parent_.pid() && endedBy_.empty())
        endedBy_ = signalText(told.ssi_signo, sender);
      wire_.send({control::stopLine(Duration::zero()), {}});
    }
  }

  Wire wire_;
  const std::vector<std::string>& arguments_;
  const Parent& parent_;
  // Where the agent looks, who comes back when it has lost the guest's shim before it learns of our
  // end. It must find somebody: it would go on looking for ten seconds, and keep all other guests
  // waiting.
  rt::Descriptor& listener_;
  rt::Descriptor signals_;
  std::string endedBy_;  // a stranger's signal
  bool isAsked_ = false;
  bool isTaken_ = false;
  std::optional<Outcome> outcome_;
};

}  // namespace

std::string standIn(const VmDirectory& directory, const CommandLine& line, const Parent& parent,
                    rt::Descriptor& listener, const std::vector<int>& parting) {
  const std::string path = directory.file(guest::shimSocket);
  rt::Descriptor connection = connectionTo(path);
  if (!connection) return "its shim cannot be reached at " + path;
  if (!parent.takesUsAlong()) throw Failure("the daemon has ended");
  Successor successor(std::move(connection), line.arguments, parent, listener);
  const Outcome outcome = successor.run();
  if (outcome.waitStatus && !successor.endedBy().empty())
    directory.lastErrorIs(endedByText(successor.endedBy(), line.name));
  // The connection lasts to the last moment, by which the shim knows when we have ended.
  if (outcome.waitStatus) endAs(*outcome.waitStatus, parting);
  Parent::leavesUs();
  return outcome.refusal;
}

}  // namespace shim
