#include "sim/kernel/CallGate.h"

#include "sim/kernel/Machine.h"

namespace sim {

Result CallGate::enter(const CallNote& note) {
  Machine& world = machine();
  Process& process = *world.scheduler.current();
  ++count_;
  ++process.calls;
  digest_.add(digestOf(note.name) ^ note.arguments ^ static_cast<uint64_t>(process.pid));
  if (++process.callsSinceSleep > mostWithoutSleep)
    world.fail("spin", process.name, std::string("calls on and on, last ") + note.name);
  world.scheduler.passCall();
  return fault ? fault(process, note) : 0;
}

Result CallGate::leave(const CallNote& note, Result result) {
  Machine& world = machine();
  Process& process = *world.scheduler.current();
  digest_.add(static_cast<uint64_t>(result));
  for (const auto& each : done) each(process, note, result);
  if (process.signals.anyUnblocked()) world.processes.deliver();
  return result;
}

}  // namespace sim
