#include "host/GuestSide.h"

#include <set>

#include "host/base/Times.h"

namespace host {

GuestSide::GuestSide(const Ground& ground, const StatusOfBefore& before, VmCards& cards)
    : ground_(ground),
      imageRows_(ground.db),
      limitRows_(model::machineLimits()),
      imageLooks_(rt::make<ImageLooks>(
          ImageLooks::Tools{
              .look = model::imageFacts,
              .answered = [this](const rt::String& vm) { supervisor_->imageIsKnown(vm); }},
          ground.clock)),
      images_({.look = [this](const auto& vm,
                              const auto& path) { return imageLooks_->facts(vm, path); },
               .forget = [this](const rt::String& vm) { imageLooks_->forget(vm); },
               .known = [this](const rt::String& vm) { supervisor_->imageIsKnown(vm); },
               .formats =
                   ground.shims.tellFormats() ? Images::Formats::told : Images::Formats::guessed},
              imageRows_),
      states_(rt::make<VmStates>(
          ground.hostStatus, VmStates::Times{timeOfDay, timeSinceBoot}, before.states,
          [this](const rt::String& vm) { ground_.shims.catchUp(vm); }, ground.clock)),
      tools_({.agent = ground.agent.root,
              .config = ground.agent.config,
              .status = ground.agent.status,
              .hostStatus = ground.hostStatus,
              .problems = ground.problems,
              .traces = ground.traces,
              .cards = cards,
              .shims = ground.shims,
              .states = *states_,
              .images = images_,
              .limits = limitRows_,
              .start = ground.start,
              .processes = processes_,
              .waiting = ground.waiting,
              .going = earlierGuests_,
              .stopPatience = stopPatience(ground.options)}),
      supervisor_(rt::make<VmSupervisor>(tools_, before.restartsDone, ground.clock)),
      prompter_(rt::make<Prompter>(
          ground.agent.root, ground.agent.status,
          [this](const rt::String& vm, bool is) { states_->unansweredIs(vm, is); }, ground.clock)),
      leftGuests_(supervisor_, tools_, ground.clock),
      earlierGuests_({.processes = processes_,
                      .shims = ground.shims,
                      .configuration = ground.configuration,
                      .db = ground.db,
                      .waiting = ground.waiting,
                      .fates = leftGuests_}) {
  ground.problems.listenerIs(
      [this](const rt::String& vm, const rt::String& text, ProblemSource source) {
        states_->problemIs(vm, text, source);
      });
}

void GuestSide::limitsAre(const rt::String& vm, const std::optional<statedb::Record>& row) {
  limitRows_.rowIs(vm, row);
  supervisor_->limitsAreKnown(vm);
}

void GuestSide::rowIs(const rt::String& vm, const VmRow* row) {
  earlierGuests_.handleRow(vm);
  supervisor_->rowIs(vm, row);
}

void GuestSide::givenUpIs(const rt::String& vm, const rt::String& guest) {
  if (!guest.empty()) earlierGuests_.handleRow(vm);
  supervisor_->givenUpIs(vm, guest);
}

void GuestSide::begin() {
  earlierGuests_.decide();
  // Of guests that ended while no daemon ran, or could not be told of any more.
  std::set<rt::String> living;
  for (const GuestProcess& guest : processes_.all()) living.insert(guest.vm);
  ground_.shims.removeDeadSocketsOfAllBut(living);
  guestFiles_ = ground_.shims.follow(
      {.problem = [this](const rt::String& vm,
                         const rt::String& problem) { supervisor_->guestProblemIs(vm, problem); },
       .event = [this](const GuestEvent& event) { states_->eventIs(event); }});
}

}  // namespace host
