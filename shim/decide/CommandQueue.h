// What QEMU has not been asked yet, for the agent and for operators.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "runtime/base/Descriptor.h"
#include "shim/decide/Cards.h"
#include "shim/decide/QmpText.h"
#include "shim/decide/Time.h"

namespace shim {

struct Command {
  qmp::Request request;
  rt::Descriptors descriptors;
  Time deadline{};       // for the answer, when one is awaited
  bool awaited = false;  // the agent waits for the answer
  // Of an operator's wish: its number as long as he waits, and what QEMU is asked.
  std::optional<uint64_t> wish{};
  std::vector<Step> steps{};
  bool isPicture = false;

  bool isOperators() const { return !steps.empty(); }
  bool isWaitedFor() const { return awaited || wish; }
};

class CommandQueue {
 public:
  bool empty() const { return commands_.empty(); }
  size_t size() const { return commands_.size(); }
  const Command& front() const { return commands_.front(); }
  // How many of them are operators'.
  size_t wishes() const;
  // The agent's goes before all that operators wish: it must not wait for their many.
  void push(Command command);
  Command pop();

  // Forgets the commands that would make the netdev and bind it, if they are still here; whether
  // they were. So that a card that comes and goes while QEMU stands still costs nothing.
  bool takeBack(const std::string& netdev);

  std::deque<Command>& commands() { return commands_; }
  const std::deque<Command>& commands() const { return commands_; }

 private:
  std::deque<Command> commands_;
};

}  // namespace shim
