// What goes wrong by itself while a story is played.
#pragma once

#include <functional>
#include <vector>

#include "sim/oracle/Watch.h"
#include "sim/story/Conditions.h"

namespace sim {

class Weather {
 public:
  Weather(World& world, Ledger& ledger, Diary& diary, Watch& watch);
  Weather(const Weather&) = delete;

  // From now on.
  void conditionsAre(const Conditions& conditions);
  // The next process for which it holds is killed at that call of its own, which it does not make.
  using Which = std::function<bool(const Process&)>;
  void killAt(uint64_t call, Which which);
  // Likewise; that call fails in place of that, if it is one that may.
  void failAt(uint64_t call, Which which);
  // Nothing is to happen any more.
  void calm();

 private:
  struct Snare {
    uint64_t callsLeft;
    Which which;
    bool kills;
  };

  Result enter(Process& process, const CallNote& note);
  Result spring(Process& process, const Snare& snare, const CallNote& note);
  Result errorOf(const Process& process, const CallNote& note);
  void blame(const Process& process, const CallNote& note, Result error);

  World& world_;
  Ledger& ledger_;
  Diary& diary_;
  Watch& watch_;
  Conditions conditions_;
  std::vector<Snare> snares_;
  Result forkError_ = 0;  // of the one that has begun
};

}  // namespace sim
