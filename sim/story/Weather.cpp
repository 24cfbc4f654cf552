#include "sim/story/Weather.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <string_view>

namespace sim {

namespace {

// A kind of call that fails, by which condition, and how.
struct Trouble {
  uint64_t Conditions::*rate;
  Result error;
  std::array<std::string_view, 14> calls;
};

constexpr std::array troubles = {
    Trouble{&Conditions::noDescriptor,
            -EMFILE,
            {"open", "open64", "openat", "openat64", "fopen", "opendir", "socket", "socketpair",
             "accept4", "pipe2", "eventfd", "epoll_create1", "signalfd", "dup"}},
    Trouble{&Conditions::noMemory, -ENOMEM, {"epoll_ctl", "inotify_add_watch", "sendmsg", "fork"}},
    Trouble{&Conditions::noProcess, -EAGAIN, {"fork"}},
    Trouble{&Conditions::diskErrors,
            -EIO,
            {"pread64", "pwrite64", "fsync", "fdatasync", "ftruncate", "ftruncate64", "rename"}},
    Trouble{&Conditions::interrupted, -EINTR, {"epoll_pwait2", "epoll_wait", "sigtimedwait"}},
};

constexpr Duration usualAbsence = std::chrono::seconds(1);

bool has(const Trouble& trouble, std::string_view call) {
  return std::find(trouble.calls.begin(), trouble.calls.end(), call) != trouble.calls.end();
}

// What the agent, or libnl, makes of these is known, and not mended: see docs/testing.md.
bool isBeyondTheAgent(const Process& process, std::string_view call) {
  return isDaemon(process) &&
         (call == "fork" || call == "sendmsg" || call == "epoll_ctl" || call == "socket");
}

bool mayFail(const Process& process, const CallNote& note) {
  // What is watched already needs no memory.
  const bool needsNone = std::strcmp(note.name, "epoll_ctl") == 0 && note.second != EPOLL_CTL_ADD;
  return !needsNone && !isBeyondTheAgent(process, note.name);
}

// As that call may fail; 0: it does not.
Result errorFor(const Process& process, const CallNote& note) {
  if (!mayFail(process, note)) return 0;
  for (const Trouble& each : troubles)
    if (has(each, note.name)) return each.error;
  return 0;
}

}  // namespace

Weather::Weather(World& world, Ledger& ledger, Diary& diary, Watch& watch)
    : world_(world), ledger_(ledger), diary_(diary), watch_(watch) {
  world.machine.gate.fault = [this](Process& process, const CallNote& note) {
    const Result error = enter(process, note);
    // Its handlers are called first.
    if (std::strcmp(note.name, "fork") != 0) return error;
    forkError_ = error;
    return Result{0};
  };
  world.machine.processes.forking = [this] { return std::exchange(forkError_, 0); };
}

void Weather::conditionsAre(const Conditions& conditions) {
  conditions_ = conditions;
  // The agent waits for a tap's node, up to ten seconds for each card.
  const bool awaitsNodes = conditions.nodeDelay > 0 || conditions.nodeMissing > 0;
  constexpr int64_t slow = 20;  // microseconds
  watch_.longestAbsence =
      awaitsNodes
          ? never
          : Duration(usualAbsence * std::max<int64_t>(int64_t(conditions.callTime) / slow, 1));
  Machine& machine = world_.machine;
  SchedulerManners& manners = machine.scheduler.manners;
  manners.switchOnceIn = conditions.switchOnceIn;
  manners.byPriority = conditions.priorities > 0;
  manners.callTime = std::chrono::microseconds(std::max<uint64_t>(conditions.callTime, 1));
  EndManners& ends = machine.processes.manners;
  ends.gap = [this](const Process&) -> Duration {
    if (conditions_.deathGap == 0) return {};
    Stream& stream = world_.machine.choices.stream("deaths");
    return std::chrono::microseconds(stream.below(conditions_.deathGap));
  };
  ends.closesLastFirst = [this](const Process&) {
    return conditions_.closesLastFirst > 0 &&
           world_.machine.choices.stream("deaths").oneIn(conditions_.closesLastFirst);
  };
  constexpr pid_t usualNumbers = 30'000;
  machine.processes.mostPid =
      conditions.processNumbers > 0 ? static_cast<pid_t>(conditions.processNumbers) : usualNumbers;
  machine.network.reusesIndexes = conditions.sameIndexes > 0;
  machine.network.newsDelay = [this]() -> Duration {
    if (conditions_.newsDelay == 0) return {};
    Stream& stream = world_.machine.choices.stream("news");
    return std::chrono::milliseconds(stream.below(conditions_.newsDelay + 1));
  };
  machine.network.nodeDelay = [this](const Link&) -> Duration {
    Stream& stream = world_.machine.choices.stream("nodes");
    if (conditions_.nodeMissing > 0 && stream.oneIn(conditions_.nodeMissing)) return never;
    if (conditions_.nodeDelay == 0) return {};
    return std::chrono::milliseconds(stream.below(conditions_.nodeDelay + 1));
  };
}

void Weather::killAt(uint64_t call, Which which) {
  snares_.push_back({call, std::move(which), true});
}

void Weather::failAt(uint64_t call, Which which) {
  snares_.push_back({call, std::move(which), false});
}

void Weather::calm() {
  snares_.clear();
  const Duration longest = watch_.longestAbsence;
  conditionsAre({});
  watch_.longestAbsence = longest;  // who waits does so on
}

Result Weather::enter(Process& process, const CallNote& note) {
  watch_.enter(process, note);
  for (size_t i = 0; i < snares_.size(); ++i) {
    if (!snares_[i].which(process) || snares_[i].callsLeft-- > 0) continue;
    const Snare snare = snares_[i];
    snares_.erase(snares_.begin() + static_cast<std::ptrdiff_t>(i));
    return spring(process, snare, note);
  }
  if (!isDaemon(process) && !isShim(process)) return 0;
  const Result error = errorOf(process, note);
  if (error != 0) blame(process, note, error);
  return error;
}

Result Weather::spring(Process& process, const Snare& snare, const CallNote& note) {
  const Result error = snare.kills ? 0 : errorFor(process, note);
  if (!snare.kills && error == 0) return 0;
  diary_.step(nameOf(process) + (snare.kills ? " is killed at " : " fails at ") + note.name);
  blame(process, note, error);
  if (snare.kills) world_.machine.processes.signal(process, {SIGKILL, 0, 0});
  return error;
}

Result Weather::errorOf(const Process& process, const CallNote& note) {
  if (conditions_.oldKernel > 0 && std::strcmp(note.name, "epoll_pwait2") == 0) return -ENOSYS;
  if (!mayFail(process, note)) return 0;
  for (const Trouble& each : troubles) {
    const uint64_t rate = conditions_.*each.rate;
    if (rate == 0 || !has(each, note.name)) continue;
    if (world_.machine.choices.stream("calls").oneIn(rate)) return each.error;
  }
  return 0;
}

// Whoever it hits may end of it.
void Weather::blame(const Process& process, const CallNote& note, Result error) {
  if (error == -ENOSYS || error == -EINTR) return;
  const std::string why = std::string(note.name) + " of its " +
                          (isDaemon(process) ? "daemon" : "shim") +
                          (error ? " failed: " + std::string(std::strerror(int(-error))) : "");
  if (error) diary_.effect(nameOf(process) + ": " + why);
  if (isDaemon(process)) {
    ledger_.daemonMayEnd(why);
    ledger_.startsMayFail(why);
    ledger_.touchAll();
    watch_.forgiveAbsence();
    if (std::strcmp(note.name, "rename") == 0) watch_.forgiveNextAbsence();
  } else {
    ledger_.mayEnd(vmOf(process), why);
  }
}

}  // namespace sim
