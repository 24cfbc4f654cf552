// How a VM's last run has ended, by each road on which an operator is told of it.
#pragma once

#include <cstdint>
#include <string>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {

struct ToldEnd {
  std::string cause;   // the word
  std::string author;  // who did it
  std::string text;    // part of the sentence
  uint64_t from = 0;   // when it was at the earliest, and at the latest: seconds since 1970
  uint64_t to = 0;
};

// Seconds since 1970.
uint64_t timeOfDay();

// What 'list', 'why', 'history', their JSON and the metrics say that is otherwise, or not the same;
// empty: nothing.
std::string wrongIn(const DaemonWorld& world, const std::string& vm, const ToldEnd& end);

}  // namespace host::fakes
