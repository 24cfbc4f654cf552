// What tests of the loop start from.
#pragma once

#include <gtest/gtest.h>

#include "runtime/fakes/Listeners.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace rt::fakes {

// A pipe or a connection: one end to be bound to a descriptor, which then owns it, and the other.
struct Ends {
  int own;
  int peer;
};
// Own: the end that is read from.
Ends pipeEnds();
// Own: the end that is written to.
Ends writingPipeEnds();
// A stream between Unix sockets.
Ends streamEnds();
// A TCP connection over the loopback interface.
Ends tcpEnds();

// Closes a number when it ends, unless that was done.
class Closer {
 public:
  explicit Closer(int number) : number_(number) {}
  Closer(const Closer&) = delete;
  ~Closer() { close(); }
  operator int() const { return number_; }
  void close();

 private:
  int number_;
};

bool isOpen(int number);
void write(int number, std::string_view text);
// All that can be read now, at most a pipe's worth.
std::string readAll(int number);
// Writes until no more is taken.
void fill(int number);

// The kernel's number of the calling thread.
int threadId();
// Whether that thread of this process waits for something in the kernel.
bool isAsleep(int thread);

// A loop on a manual clock, which stands at 1000 s, and a log of what it tells.
class LoopTest : public testing::Test {
 protected:
  const Ptr<ManualClock> clock = make<ManualClock>();
  ActivityManager manager{clock};
  Log log;

  void turn() { manager.turn(Seconds(0)); }
  Log take() { return std::exchange(log, {}); }
  // A machine that is to be woken at `time`.
  Ptr<Sleeper> sleeper(const std::string& name, double time);
  // A machine that listens for data on `own`.
  Ptr<Listener> reader(const std::string& name, int own);
};

}  // namespace rt::fakes
