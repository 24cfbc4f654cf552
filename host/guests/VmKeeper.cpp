#include "host/guests/VmKeeper.h"

#include <utility>

#include "host/base/Report.h"
#include "host/guests/AgentView.h"
#include "host/guests/Ending.h"
#include "runtime/base/FirstException.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace host {

VmKeeper::VmKeeper(const KeeperTools& tools, VmQueue& queue, rt::String name, uint64_t restartsDone)
    : tools_(tools),
      queue_(queue),
      name_(std::move(name)),
      pacing_(restartsDone, tools.stopPatience),
      restart_(restartsDone),
      status_(*this),
      machine_(*this),
      process_(*this) {
  handleInitialized();
}

void VmKeeper::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  note();
}

void VmKeeper::rowIs(const VmRow* row) {
  isLost_ = row && row->isLost;
  hasRow_ = row && !isLost_;
  rowProblem_ = row ? textOf(row->problems) : rt::String();
  vm_ = row ? row->vm : 0;
  if (hasRow_) row_ = row->origin;
  // What is in force stays until there is something else of that VM's.
  if (!row || row->valid || mountedVm_ != vm_) wanted_ = row ? row->valid : nullptr;
  changed_ = true;
  pacing_.hurry();
  note();
}

void VmKeeper::restartIs(uint64_t number, bool ifEnded) {
  restart_ = number;
  sparesGuest_ = ifEnded;
  note();
}

void VmKeeper::stopIs(uint64_t number, int32_t within) {
  stop_ = number;
  within_.reset();
  if (within >= 0) within_ = rt::Seconds(within);
  note();
}

void VmKeeper::restartIsPast(uint64_t number) {
  restart_ = number;
  pacing_.restartsDoneIs(number);
  note();
}

void VmKeeper::givenUpIs(const rt::String& guest) {
  givenUp_ = guest;
  note();
}

void VmKeeper::guestProblemIs(const rt::String& problem) {
  guestProblem_ = problem;
  note();
}

void VmKeeper::survivorsIs(size_t count) {
  survivors_ = count;
  if (count == 0) unknown_.reset();
  note();
}

void VmKeeper::adoptableIs(bool adoptable) {
  adoptable_ = adoptable;
  note();
}

void VmKeeper::unknownIs(std::optional<UnknownGuest> guest) {
  unknown_ = std::move(guest);
  note();
}

void VmKeeper::imageIsKnown() {
  pacing_.again();
  note();
}

rt::Seconds VmKeeper::wakeUp() const {
  if (awaitsTurn_) return std::min(killAt_, tools_.order.turnAt(name_));
  if (awaitsImage_) return std::min(killAt_, tools_.order.heldUntil(name_));
  return std::min(killAt_, pacing_.wakeUp());
}

void VmKeeper::handleStatus() {
  const bool isThere = process_.notifier() && isAlive(*process_.notifier());
  if (isThere && status_->state() != "Starting") takesUp_ = false;
  tools_.cards.changed(name_);
  note();
}

void VmKeeper::handleMachine(const rt::Entity& machine, const rt::Change& /*change*/) {
  tools_.cards.changed(name_);
  const auto process = processOf(machine);
  if (!process || process_.notifier() == process) return;
  process_.notifierIs(process);
  note();
}

void VmKeeper::handleProcess(const rt::Entity& process, const rt::Change& /*change*/) {
  if (!isAlive(process)) note();
}

bool VmKeeper::isDone() const { return !hasRow_ && !mounted_ && !hasProcess(); }

bool VmKeeper::hasProcess() const {
  return survivors_ > 0 || (process_.notifier() && isAlive(*process_.notifier()));
}

// It goes on, and what the agent had for it has ended.
bool VmKeeper::isOutOfReach() const {
  return adoptable_ && mounted_ && mounted_->enabled() && !hasProcess();
}

VmFacts VmKeeper::facts() const {
  const bool isStarting = status_ && status_->state() == "Starting";
  return {.wanted = wanted_ && wanted_->enabled(),
          .switchedOn = mounted_ && mounted_->enabled(),
          .statusEnabled = status_ && status_->enabled(),
          .process = hasProcess(),
          .takingUp = takesUp_ && isStarting,
          .adoptable = adoptable_,
          .starting = isStarting,
          .inVain = isUnmade_ || isOutOfReach(),
          .again = isToStartAgain(),
          .restart = restart_,
          .sparesGuest = sparesGuest_,
          .stop = stop_,
          .within = within_};
}

// Of a guest that an operator has ended Pacing does not ask.
bool VmKeeper::isToStartAgain() const {
  if (hasProcess()) return false;
  const rt::String policy = tools_.own.policy(name_)->restart();
  if (policy == model::restart::always) return true;
  const auto end = tools_.states.lastEnd(name_);
  return policy == model::restart::onFailure && (end ? end->isFailure : hasFailed_);
}

bool VmKeeper::act(rt::Seconds now) {
  tools_.states.turnBegins(name_);
  if (process_.notifier() && !isAlive(*process_.notifier())) processEnded();
  lookForGuest();
  endOverdue(now);
  bool acted = false;
  awaitsImage_ = false;
  awaitsTurn_ = false;
  rt::FirstException failure;
  failure.run([&] { acted = step(now); });
  leaveOrder(now);
  tellGuest();
  showProcess();
  showRowProblem();
  showImage();
  showRoom();
  showGuestProblem();
  showRestartNeeded();
  showState();
  tools_.states.turnEnds(name_);
  failure.rethrow();
  return acted;
}

// Those behind it are not to wait for a start that is over, is not to be or takes too long.
void VmKeeper::leaveOrder(rt::Seconds now) {
  const bool isTried = pacing_.tryAt() != rt::Seconds::infinity() && !awaitsImage_;
  const bool isAhead = isToBeStarted() && !isTried;
  if (awaitsTurn_ || (isAhead && now < tools_.order.heldUntil(name_))) return;
  if (hasProcess())
    tools_.order.started(name_, now);
  else
    tools_.order.passed(name_);
}

// Who answers at the shim's socket has a guest, though the agent's process has ended: it was to
// stand in for that shim, and did not come to it. A shim whose stand-in is lost later ends its
// guest.
void VmKeeper::processEnded() {
  const bool wasToEnd = !facts().switchedOn;
  const rt::String cause = causeOfEnd();
  tools_.problems.problemIs(name_, ProblemSource::qemu, cause);
  hasFailed_ = !cause.empty();
  isUnmade_ = pidOf(*process_.notifier()) <= 0;
  process_.notifierIs(nullptr);
  if (hasProcess()) return;
  const bool goesOn = (takesUp_ || wasToEnd) && tools_.shims.isThere(name_) &&
                      (wasToEnd ? tools_.going.end(name_) : tools_.going.decideOn(name_));
  if (!goesOn) ended();
}

// It may have ended meanwhile, and nobody would tell.
void VmKeeper::lookForGuest() {
  if (!isOutOfReach() || tools_.shims.isThere(name_)) return;
  adoptable_ = false;
  (void)tools_.waiting.take(name_);
  ended();
}

// A shim that stands still, or a QEMU without one, may not hear that it is to end.
void VmKeeper::endOverdue(rt::Seconds now) {
  const bool isToEnd =
      process_.notifier() && isAlive(*process_.notifier()) && !(mounted_ && mounted_->enabled());
  const bool isDue = isToEnd && now >= killAt_;
  if (isDue) {
    report("VM " + name_ + ": its process " + rt::toText(pidOf(*process_.notifier())) +
           " was told to end and does not: it is killed");
    tools_.states.overdueIs(name_);
    tools_.processes.kill(pidOf(*process_.notifier()));
  }
  if (!isToEnd)
    killAt_ = rt::Seconds::infinity();
  else if (isDue || killAt_ == rt::Seconds::infinity())
    killAt_ = now + shimsOwn;
}

void VmKeeper::ended() {
  tools_.start.ended(name_);
  tools_.budget.ended(name_);
  tools_.shims.removeDeadSockets(name_);
  showState();  // a policy goes by how it ended
}

// Why the process has ended; empty when nothing is wrong with that. One that was killed, or could
// not be run, has left no word.
rt::String VmKeeper::causeOfEnd() const {
  rt::String lastError = tools_.shims.lastError(name_);
  if (!lastError.empty() || !facts().switchedOn) return lastError;
  const rt::Entity& process = *process_.notifier();
  if (pidOf(process) <= 0)
    return "no process could be made for it: too many are there, or memory is short";
  return textOf(Ending{.signal = endSignalOf(process), .status = exitStatusOf(process)}, name_);
}

bool VmKeeper::mustGo() const {
  return mounted_ && (!wanted_ || mountedVm_ != vm_ || (isLost_ && !hasProcess()));
}

bool VmKeeper::step(rt::Seconds now) {
  if (isLost_ && !givenUp_.empty()) giveUp();
  if (mustGo()) {
    const Step leaving = mounted_->enabled() ? pacing_.leave(facts(), now) : Step::switchOff;
    if (leaving == Step::ask) ask();
    if (leaving == Step::switchOff) dismount();
    return leaving != Step::none;
  }
  if (!wanted_) return false;
  if (mounted_) return apply(pacing_.next(facts(), now), now);
  // All others are mounted before the first is switched on: that may take long.
  mount();
  note();
  return false;
}

void VmKeeper::mount() {
  auto record = rt::make<Vm::VmConfig>(name_);
  statedb::copy(*wanted_, *record);
  record->enabledIs(false);
  mounted_ = record;
  mountedVm_ = vm_;
  changed_ = false;
  const TraceLog::Change change(tools_.traces, name_);
  try {
    tools_.config->vmConfigMount(record);
    attend();
    tools_.problems.problemIs(name_, ProblemSource::agent, change.failure());
  } catch (...) {
    attend();
    if (!machine_.notifier())
      dismount();  // the agent did not take it: it is mounted anew next time
    throw;
  }
}

void VmKeeper::attend() {
  status_.notifierIs(tools_.status->vmStatus(name_));
  machine_.notifierIs(vmMachine(*tools_.agent, name_));
}

void VmKeeper::dismount() {
  machine_.notifierIs(nullptr);
  status_.notifierIs(nullptr);
  mounted_ = nullptr;
  mountedVm_ = 0;
  startedWith_ = nullptr;
  pacing_ = Pacing(pacing_.restartsDone(), tools_.stopPatience);  // what failed was the other VM
  image_ = {};
  for (const auto source : {ProblemSource::qemu, ProblemSource::restart})
    tools_.problems.problemIs(name_, source, {});
  tools_.cards.switchingOff(name_);
  const TraceLog::Change change(tools_.traces, name_);
  rt::FirstException thrown;
  thrown.run([&] {
    tools_.config->vmConfigDel(name_);
    tools_.problems.problemIs(name_, ProblemSource::agent, change.failure());
  });
  tools_.cards.switchedOff(name_);
  thrown.rethrow();
}

void VmKeeper::ask() {
  if (!tools_.shims.askToStop(name_, pacing_.ownTime(facts()))) pacing_.askFailed();
}

bool VmKeeper::apply(Step step, rt::Seconds now) {
  if (step == Step::ask) {
    ask();
    return true;
  }
  if (wouldStart(step) && !tools_.order.isTurn(name_, now)) {
    awaitsTurn_ = true;
    return false;
  }
  if (wouldStart(step)) {
    switch (judgeStart()) {
      case ImageVerdict::Kind::awaited:
        awaitsImage_ = true;
        pacing_.deferred();
        return false;
      case ImageVerdict::Kind::refused:
        // A record that is off starts nothing, whatever else of it changes.
        pacing_.refused(now);
        step = mounted_->enabled() ? Step::switchOff : Step::none;
        break;
      case ImageVerdict::Kind::fit:
        start(step);
        return step != Step::none;
    }
  }
  if (step == Step::none && !changed_) return false;
  // The agent has nothing of it that it could end.
  if (step == Step::switchOff && isOutOfReach()) (void)tools_.going.end(name_);
  write(step);
  return step != Step::none;
}

void VmKeeper::start(Step step) {
  tools_.shims.lastErrorDel(name_);
  tools_.start.before({.vm = name_,
                       .row = row_,
                       .imageFormat = image_.format,
                       .group = tools_.budget.groupOf(name_)});
  told_ = row_;
  rt::FirstException failure;
  failure.run([&] { write(step); });
  tools_.start.after();
  if (!hasProcess()) tools_.budget.ended(name_);  // nothing was born
  failure.rethrow();
}

// A VM that is switched on and was not started yet is, too, when it has another disk image.
bool VmKeeper::wouldStart(Step step) const {
  if (step == Step::switchOn || step == Step::pulse) return true;
  return step == Step::none && facts().switchedOn && !facts().statusEnabled &&
         mounted_->diskImage() != wanted_->diskImage();
}

ImageVerdict::Kind VmKeeper::judgeStart() {
  const auto image = judgeImage();
  // There is no more room than before, either.
  if (image == ImageVerdict::Kind::awaited) return image;
  // A guest that is taken up has what it has.
  noRoom_ = image == ImageVerdict::Kind::fit && !adoptable_ ? tools_.budget.reserve(*wanted_) : "";
  return noRoom_.empty() ? image : ImageVerdict::Kind::refused;
}

ImageVerdict::Kind VmKeeper::judgeImage() {
  ImageVerdict verdict =
      tools_.images.judge({.vm = name_, .path = wanted_->diskImage(), .takesUp = adoptable_});
  // What was found before holds until there is another answer.
  if (verdict.kind == ImageVerdict::Kind::awaited) return verdict.kind;
  image_ = std::move(verdict);
  return image_.kind;
}

void VmKeeper::write(Step step) {
  const bool wasOn = facts().statusEnabled;
  if (step != Step::none) {
    isPolicys_ = step == Step::pulse && wasOn && isToStartAgain();
    startedWith_ = nullptr;
    isUnmade_ = false;
  }
  if (step == Step::switchOff) tools_.cards.switchingOff(name_);
  const TraceLog::Change change(tools_.traces, name_);
  rt::FirstException thrown;
  thrown.run([&] { writeRecord(step); });
  // A new disk image has the agent start what it could not start before, whatever the step.
  const bool goesOn = !wasOn && facts().statusEnabled;
  if (goesOn) startedWith_ = wanted_;
  if (goesOn) startedFormat_ = image_.format;
  // A VM that is off is as it should be, whatever the agent did not find on the way.
  const bool isOff = step == Step::switchOff && !facts().statusEnabled;
  const rt::String failure = isOff ? rt::String() : change.failure();
  // What is reported from here on is no failure of the agent's.
  if (step == Step::switchOff) tools_.cards.switchedOff(name_);
  const bool isStart = step == Step::switchOn || step == Step::pulse;
  if (isStart) takesUp_ = std::exchange(adoptable_, false);
  if (isStart && takesUp_)
    thrown.run([&] {
      told_ = statedb::Origin();  // that of its own start
      (void)tools_.waiting.take(name_);
      tools_.cards.tookUp(name_);
    });
  // What failed stays to be seen until a change went well; the rest of one that threw is none.
  const bool wentWell = facts().statusEnabled == mounted_->enabled() && !isRepeated_;
  if (step != Step::none || goesOn || wentWell || !failure.empty())
    tools_.problems.problemIs(name_, ProblemSource::agent, failure);
  if (step != Step::none) tools_.problems.problemIs(name_, ProblemSource::qemu, {});
  isRepeated_ = true;
  thrown.rethrow();
  isRepeated_ = false;
}

// Makes the record what the row says, its switch as the step says: last when it goes on, first when
// it goes off.
void VmKeeper::writeRecord(Step step) {
  if (step == Step::pulse || step == Step::switchOff) mounted_->enabledIs(false);
  const auto desired = rt::make<Vm::VmConfig>(name_);
  statedb::copy(*wanted_, *desired);
  desired->enabledIs(step == Step::switchOn || step == Step::pulse ||
                     (step == Step::none && mounted_->enabled()));
  changed_ = true;
  statedb::copy(*desired, *mounted_, "enabled");
  changed_ = false;
}

// An operator's word ends it, where its row's cannot.
void VmKeeper::giveUp() {
  const auto guest = unknownGuest();
  if (guest && guest->name == givenUp_) wanted_ = nullptr;
}

// The store of its row is another than when it was started: a daemon that comes later must find it
// to be of the row that is there now.
void VmKeeper::tellGuest() {
  const bool isItsOwn = hasRow_ && mounted_ && !mustGo() && facts().switchedOn && hasProcess();
  if (!isItsOwn || !told_ || *told_ == row_) return;
  tools_.shims.rowIs(name_, row_);
  told_ = row_;
}

std::optional<UnknownGuest> VmKeeper::unknownGuest() const {
  if (unknown_ || !isLost_ || !process_.notifier() || !wanted_) return unknown_;
  const int32_t pid = pidOf(*process_.notifier());
  return UnknownGuest{pid, tools_.processes.nameOf(pid),
                      "config.db was replaced by one that does not have it"};
}

}  // namespace host
