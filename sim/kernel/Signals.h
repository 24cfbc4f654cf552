// A process' signals.
#pragma once

#include <signal.h>

#include <array>
#include <map>
#include <optional>

#include "sim/kernel/WaitQueue.h"

namespace sim {

// What comes with one.
struct SignalInfo {
  int number = 0;
  pid_t sender = 0;  // 0: the kernel
  int status = 0;    // of a child's end: as waitpid() tells it
};

class Signals {
 public:
  enum class Fate { ignored, waits, ends, stops, calls };

  // What becomes of one that comes now.
  Fate fateOf(int number) const;
  void add(const SignalInfo& info);
  // The first of those in `set` that waits, which waits no longer.
  std::optional<SignalInfo> take(const sigset_t& set);
  bool anyOf(const sigset_t& set) const;
  // The first that waits and is not blocked.
  std::optional<SignalInfo> takeUnblocked();
  bool anyUnblocked() const;

  struct sigaction& action(int number) {
    return actions_.at(static_cast<size_t>(number));
  }
  const struct sigaction& action(int number) const {
    return actions_.at(static_cast<size_t>(number));
  }
  bool isBlocked(int number) const { return sigismember(&mask, number) == 1; }

  // A new program keeps what is ignored, and forgets its handlers.
  void handleExec();

  sigset_t mask{};
  WaitQueue came;  // for who waits for one to read

  static Fate defaultFateOf(int number);

 private:
  std::array<struct sigaction, NSIG> actions_{};
  std::map<int, SignalInfo> waiting_;
};

}  // namespace sim
