// A monitor session with a peer in QEMU's place, on a manual clock, and what reads its results.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Vm/Monitor/MonitorSm.h"
#include "Vm/Monitor/fakes/QmpPeer.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

// Reads a session's results and state, as the VM's machine does, remembers them and acts on them as
// a test says.
class MonitorReader final : public rt::StateMachineOf<MonitorReader> {
 public:
  MonitorReader(MonitorOutput::Ptr output, MonitorStatus::Ptr status)
      : output_(*this, std::move(output)), status_(*this, std::move(status)) {}

  std::function<void()> onResult;
  std::function<void()> onState;

  // What came since the last call: a result as "queryStatus 2 success Running", a state as its
  // name.
  std::vector<std::string> take() { return std::exchange(told_, {}); }

  static constexpr std::string_view typeName = "Vm::fakes::MonitorReader";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &MonitorReader::initialized>>;

 private:
  void handleResult();
  void handleState();

  std::vector<std::string> told_;
  rt::Reactor<MonitorReader, MonitorOutput,
              rt::On<&MonitorOutput::counter, &MonitorReader::handleResult>>
      output_;
  rt::Reactor<MonitorReader, MonitorStatus,
              rt::On<&MonitorStatus::state, &MonitorReader::handleState>>
      status_;
};

// The arguments of backendAdd and backendDel. A null text or `fd` 0 leaves the argument out.
MonitorCommandArgs::Ptr backendArgs(uint32_t fd, const char* fdname, const char* backendId,
                                    const char* nicId = nullptr);

// A session and all that it needs. It was just made: no greeting has come, the clock stands at
// 1000 s.
class MonitorSession {
 public:
  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  QmpPeer peer;
  const MonitorInput::Ptr input = rt::make<MonitorInput>(0U);
  const MonitorOutput::Ptr output = rt::make<MonitorOutput>(0U);
  const MonitorStatus::Ptr status =
      rt::make<MonitorStatus>(MonitorStatus::MonitorState::uninitialized);
  const rt::Ptr<MonitorReader> reader = rt::make<MonitorReader>(output, status);
  const rt::FileDescriptor::Ptr descriptor = rt::make<rt::FileDescriptor>("web1-monitor");
  MonitorSm::Ptr session;

  MonitorSession();

  void turn() { manager.turn(rt::Seconds(0)); }
  // The peer sends `bytes`, and the session reads them.
  void hear(std::string_view bytes);
  // Lets time pass, with all wake-ups on the way.
  void advance(double seconds) { clock->advance(rt::Seconds(seconds)); }
  // Issues a command as the VM's machine does; returns its id.
  uint32_t issue(MonitorCommand cmd, const MonitorCommandArgs::PtrConst& args = nullptr);
  // Ends the session as its owner's mutator does; also within what it tells.
  void destroy();
  // The peer answers what the session asks, until it asks no more; all requests on the way.
  std::vector<std::string> converse();
  // From a session just made to one that is connected and has nothing to do. What came on the way
  // is forgotten.
  void connect();
};

}  // namespace Vm::fakes
