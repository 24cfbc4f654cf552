#include "host/GuestSide.h"

#include <set>

namespace host {

GuestSide::GuestSide(const Ground& ground, std::map<rt::String, uint64_t> restartsDone,
                     VmCards& cards)
    : ground_(ground),
      imageRows_(ground.db),
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
      tools_({.agent = ground.agent.root,
              .config = ground.agent.config,
              .status = ground.agent.status,
              .hostStatus = ground.hostStatus,
              .problems = ground.problems,
              .traces = ground.traces,
              .cards = cards,
              .shims = ground.shims,
              .images = images_,
              .start = ground.start,
              .processes = processes_,
              .waiting = ground.waiting,
              .stopPatience = stopPatience(ground.options)}),
      supervisor_(rt::make<VmSupervisor>(tools_, std::move(restartsDone), ground.clock)),
      prompter_(rt::make<Prompter>(ground.agent.root, ground.agent.status, ground.clock)),
      leftGuests_(supervisor_, tools_, ground.clock),
      earlierGuests_({.processes = processes_,
                      .shims = ground.shims,
                      .configuration = ground.configuration,
                      .db = ground.db,
                      .waiting = ground.waiting,
                      .fates = leftGuests_}) {}

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
  guestProblems_ =
      ground_.shims.followProblems([this](const rt::String& vm, const rt::String& problem) {
        supervisor_->guestProblemIs(vm, problem);
      });
}

}  // namespace host
