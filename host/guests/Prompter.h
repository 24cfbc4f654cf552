// Has guests asked for their state where the agent's own polls are not enough.
#pragma once

#include <functional>
#include <map>

#include "host/guests/AgentView.h"
#include "host/guests/Prompting.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
#include "runtime/records/VmStatus.h"

namespace host {

// One VM's monitor session, followed while the VM is on, and prompted as Prompting says: by the
// agent's own records, as the session prompts itself.
class SessionPrompter final : public rt::StateMachineOf<SessionPrompter> {
 public:
  // `agent`: the root that the module's factory made. `unanswered`: is told whether its guest does
  // not answer, when that changes.
  SessionPrompter(rt::Ptr<const rt::Entity> agent, Vm::VmStatus::PtrConst status,
                  std::function<void(bool)> unanswered, rt::Clock::Ptr clock);

  static constexpr std::string_view typeName = "host::SessionPrompter";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &SessionPrompter::initialized>>;

 private:
  void handleInitialized();
  void handleStatus();
  void handleChange(const rt::Entity& /*entity*/, const rt::Change& /*change*/) { look(); }
  void handleClock();
  void look();
  SessionFacts facts(const rt::Ptr<rt::Entity>& machine) const;

  const rt::Ptr<const rt::Entity> agent_;
  const std::function<void(bool)> unanswered_;
  Session session_;
  Prompting prompting_;

  rt::Reactor<SessionPrompter, const Vm::VmStatus,
              rt::On<&Vm::VmStatus::enabled, &SessionPrompter::handleStatus>,
              rt::On<&Vm::VmStatus::state, &SessionPrompter::handleStatus>>
      status_;
  rt::AnyReactor<SessionPrompter, &SessionPrompter::handleChange> machine_;
  rt::AnyReactor<SessionPrompter, &SessionPrompter::handleChange> input_;
  rt::AnyReactor<SessionPrompter, &SessionPrompter::handleChange> monitor_;
  rt::ClockReactor<SessionPrompter, &SessionPrompter::handleClock> clock_;
};

// One for each VM that has a status. Owned by the daemon.
class Prompter final : public rt::StateMachineOf<Prompter> {
 public:
  // Is told whether the VM's guest does not answer, when that changes.
  using Unanswered = std::function<void(const rt::String& vm, bool isUnanswered)>;

  Prompter(rt::Ptr<const rt::Entity> agent, Vm::Status::PtrConst status, Unanswered unanswered,
           rt::Clock::Ptr clock);

  static constexpr std::string_view typeName = "host::Prompter";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Prompter::initialized>>;

 private:
  void handleInitialized();
  void handleVm(const rt::String& vm);

  const rt::Ptr<const rt::Entity> agent_;
  const Unanswered unanswered_;
  const rt::Clock::Ptr clock_;
  std::map<rt::String, SessionPrompter::Ptr> sessions_;

  rt::Reactor<Prompter, const Vm::Status, rt::On<&Vm::Status::vmStatus, &Prompter::handleVm>>
      status_;
};

}  // namespace host
