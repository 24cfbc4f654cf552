#include "host/GuestSide.h"

#include <unistd.h>

#include <set>

#include "guest/EventWords.h"
#include "host/base/Times.h"
#include "host/budget/BudgetSettings.h"

namespace host {

namespace {

// What was so of each VM when the daemon before ended, or the machine.
std::map<rt::String, VmStates::Before> statesOf(const StatusOfBefore& before, const EndBook& book) {
  auto states = before.states;
  for (const auto& [vm, end] : book.ends()) states[vm].end = end;
  return states;
}

}  // namespace

GuestSide::GuestSide(const Ground& ground, const StatusOfBefore& before, VmCards& cards)
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
      states_(rt::make<VmStates>(
          ground.hostStatus, VmStates::Times{timeOfDayInMilliseconds, timeSinceBoot},
          statesOf(before, ground.ends.book()),
          VmStates::Others{
              .catchUp = [this](const rt::String& vm) { ground_.shims.catchUp(vm); },
              .tell = [this](const model::Event::Ptr& event) { ground_.history.add(event); },
              .runs = [this](
                          const rt::String& vm,
                          const GuestRun& run) { ground_.ends.runs(vm, run.run, run.startedAt); },
              .ended = [this](const rt::String& vm, uint64_t run,
                              const End& end) { ground_.ends.ended(vm, run, end); },
              .gone = [this](const rt::String& vm) { ground_.ends.vmDel(vm); }},
          ground.clock)),
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
              .own = ground.own,
              .budget = guestBudget(),
              .start = ground.start,
              .processes = processes_,
              .waiting = ground.waiting,
              .going = earlierGuests_,
              .order = order_,
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
        ground_.chronicle.problemIs(vm, text, source);
      });
}

void GuestSide::ownRowIs(const rt::String& vm) {
  if (budget_) budget_->limitsAre(vm);
  supervisor_->ownRowsAreKnown(vm);
}

void GuestSide::rowIs(const rt::String& vm, const VmRow* row) {
  earlierGuests_.handleRow(vm);
  supervisor_->rowIs(vm, row);
}

void GuestSide::givenUpIs(const rt::String& vm, const rt::String& guest) {
  if (!guest.empty()) earlierGuests_.handleRow(vm);
  supervisor_->givenUpIs(vm, guest);
}

// What the daemon has for itself and the shims, where the kernel can bound guests.
GuestBudget& GuestSide::guestBudget() {
  const model::DaemonStatus::Ptr status = ground_.hostStatus->daemonIs(model::daemonKey);
  const Options& options = ground_.options;
  Budget::Settings settings = budgetOf({.memory = options.guestsMemory,
                                        .processors = options.guestsCpu,
                                        .acceleration = options.accel},
                                       machineFiles_);
  const GuestsGroup group = options.shim == "off"
                                ? GuestsGroup{{}, "guests have no shims (--shim off)"}
                                : makeGuestsGroup(machineFiles_, settings.share, getpid());
  show(*status, settings, group);
  if (group.path.empty()) return noBudget_;
  settings.group = group.path;
  groupWatch_ = rt::make<GroupWatch>([this] { budget_->look(); });
  budget_ = std::make_unique<Budget>(
      Budget::Tools{.files = machineFiles_,
                    .rows = ground_.own,
                    .watch = [this](const rt::String& path) { groupWatch_->watch(path); },
                    .again = [this](const rt::String& vm) { supervisor_->imageIsKnown(vm); },
                    .isKept = [this](const rt::String& vm) { return ground_.shims.isThere(vm); }},
      settings, status);
  return *budget_;
}

bool GuestSide::pass() {
  if (budget_) budget_->pass(ground_.clock->now());
  return supervisor_->pass();
}

void GuestSide::handleEvent(const GuestEvent& event) {
  states_->eventIs(event);
  const bool isReset = event.kind() == guest::event::reset;
  const rt::String resetBy = isReset ? states_->takeResetBy(event.vm()) : rt::String();
  if (const auto happening = happeningOf(event, resetBy)) ground_.history.add(happening);
}

void GuestSide::begin() {
  earlierGuests_.decide();
  supervisor_->begin();
  // Of guests that ended while no daemon ran, or could not be told of any more.
  std::set<rt::String> living;
  for (const GuestProcess& guest : processes_.all()) living.insert(guest.vm);
  ground_.shims.removeDeadSocketsOfAllBut(living);
  guestFiles_ = ground_.shims.follow(
      {.problem = [this](const rt::String& vm,
                         const rt::String& problem) { supervisor_->guestProblemIs(vm, problem); },
       .event = [this](const GuestEvent& event) { handleEvent(event); }});
  ground_.history.daemonHasBegun();
}

}  // namespace host
