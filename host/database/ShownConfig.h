// How far of the configuration shows in the status.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "statedb/Record.h"

namespace host {

// What was taken of it shows once each VM that it told of had a turn. Who waits for what he asked
// for goes by that: until then the status is of before. Owned by the daemon.
class ShownConfig {
 public:
  // It was taken as far as that, when so many turns were asked for.
  void taken(statedb::Cursor reached, uint64_t turnsAsked) {
    taken_.emplace_back(std::move(reached), turnsAsked);
  }
  // How far it shows when so many turns are over; nothing: no farther than it was said last.
  std::optional<statedb::Cursor> shown(uint64_t turnsHad) {
    std::optional<statedb::Cursor> shown;
    for (; !taken_.empty() && taken_.front().second <= turnsHad; taken_.pop_front())
      shown = std::move(taken_.front().first);
    return shown;
  }

 private:
  std::deque<std::pair<statedb::Cursor, uint64_t>> taken_;
};

}  // namespace host
