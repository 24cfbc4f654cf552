#include "host/guests/Prompter.h"

#include <utility>

#include "host/base/Report.h"

namespace host {

namespace {

// Attaching is for those that change only: it costs more than a look.
template <class Reactor>
void follow(Reactor& reactor, const rt::Ptr<const rt::Entity>& entity) {
  if (reactor.notifier() != entity) reactor.notifierIs(entity);
}

}  // namespace

SessionPrompter::SessionPrompter(rt::Ptr<const rt::Entity> agent, Vm::VmStatus::PtrConst status,
                                 std::function<void(bool)> unanswered, rt::Clock::Ptr clock)
    : agent_(std::move(agent)),
      unanswered_(std::move(unanswered)),
      status_(*this, std::move(status)),
      machine_(*this),
      input_(*this),
      monitor_(*this),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void SessionPrompter::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  look();
}

void SessionPrompter::handleStatus() { look(); }

// Only looks: whoever is told of a change must not make the agent do something within it.
void SessionPrompter::look() {
  const auto machine = status_->enabled() ? vmMachine(*agent_, status_->name()) : nullptr;
  session_ = machine ? sessionOf(*machine) : Session();
  follow(machine_, machine);
  follow(input_, session_.input);
  follow(monitor_, session_.status);
  const bool wasUnanswered = prompting_.isUnanswered();
  prompting_.factsAre(facts(machine), clock_.notifier()->now());
  clock_.timeMinIs(prompting_.wakeUp());
  if (prompting_.isUnanswered() != wasUnanswered) unanswered_(!wasUnanswered);
}

SessionFacts SessionPrompter::facts(const rt::Ptr<rt::Entity>& machine) const {
  const auto process = machine ? processOf(*machine) : nullptr;
  if (!process || !isAlive(*process) || !isConnected(session_)) return {};
  return {.isUp = true,
          .state = status_->state(),
          .asked = commandsOf(session_),
          .answered = lastAnswered(session_)};
}

void SessionPrompter::handleClock() {
  const Prompt prompt = prompting_.due(clock_.notifier()->now());
  clock_.timeMinIs(prompting_.wakeUp());
  const Session session = session_;  // the agent may replace it meanwhile
  if (prompt == Prompt::ask) askForState(session);
  if (prompt != Prompt::wake) return;
  report("VM " + status_->name() + ": was not polled any more, and is again");
  connectAgain(session);
}

Prompter::Prompter(rt::Ptr<const rt::Entity> agent, Vm::Status::PtrConst status,
                   Unanswered unanswered, rt::Clock::Ptr clock)
    : agent_(std::move(agent)),
      unanswered_(std::move(unanswered)),
      clock_(std::move(clock)),
      status_(*this, std::move(status)) {
  handleInitialized();
}

void Prompter::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const auto& [vm, status] : status_->vmStatuses()) handleVm(vm);
}

void Prompter::handleVm(const rt::String& vm) {
  sessions_.erase(vm);
  if (const auto status = status_->vmStatus(vm))
    sessions_[vm] = rt::make<SessionPrompter>(
        agent_, status, [this, vm](bool isUnanswered) { unanswered_(vm, isUnanswered); }, clock_);
}

}  // namespace host
