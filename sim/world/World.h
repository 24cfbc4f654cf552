// A machine with the programs on it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/models/Qemu.h"
#include "sim/world/Installation.h"
#include "sim/world/Operator.h"

namespace sim {

class World {
 public:
  explicit World(uint64_t seed);

  // Starts a daemon; what it says goes to its log.
  Process& startDaemon(const std::vector<std::string>& options = {});
  // Lets the world run until the daemon that was started last says that it is ready; whether it
  // does so in time.
  bool becomesReady(Duration time = std::chrono::seconds(10));
  // Null when it has ended.
  Process* daemon() const;
  // All that it held is free.
  bool daemonIsGone() const;
  // What daemons have said, the last one's from its start.
  const std::string& log() const { return log_->bytes; }

  void pass(Duration time) { machine.scheduler.runUntil(machine.now() + time); }
  // Lets time pass until it holds; whether it does in time.
  bool until(const std::function<bool()>& holds, Duration time = std::chrono::seconds(60));

  // A VM with a disk of its own, as an operator adds it; `more`: members of its document.
  std::string addVm(const std::string& vm, const std::string& more = "");
  // A port of the switch comes; its index.
  uint32_t plug(const std::string& port);
  void unplug(const std::string& port);

  Machine machine;
  Qemus qemus;
  Operator person;

 private:
  InodePtr log_;
  uint8_t ports_ = 0;
  std::shared_ptr<Process> daemon_;
};

}  // namespace sim
