// What a VM's keeper shows of it: its process, its state, and what is wrong.
#include "host/guests/AgentView.h"
#include "host/guests/VmKeeper.h"
#include "model/RestartNeeded.h"

namespace host {

bool VmKeeper::isEnding() const {
  return !unknown_ && (!facts().switchedOn || !facts().statusEnabled || pacing_.isLeaving());
}

void VmKeeper::showProcess() {
  const bool there = hasProcess();
  const auto record = tools_.hostStatus->vmProcessIs(name_);
  record->processIs(!there ? "none" : isEnding() ? "ending" : "running");
  record->pidIs(process_.notifier() ? pidOf(*process_.notifier()) : unknown_ ? unknown_->pid : 0);
  record->restartsIs(pacing_.restartsDone());
  const auto unknown = unknownGuest();
  record->unknownIs(there && unknown ? unknown->name : rt::String());
}

Wanted VmKeeper::wantedState() const {
  if (!hasRow_) return isLost_ || unknown_ ? Wanted::unknown : Wanted::gone;
  if (!wanted_) return Wanted::unknown;
  return wanted_->enabled() ? Wanted::running : Wanted::stopped;
}

void VmKeeper::showState() {
  const bool isWanted = wantedState() == Wanted::running;
  tools_.states.keeperSays(
      name_,
      {.wanted = wantedState(),
       .hasProcess = hasProcess() || adoptable_,
       .mayGoOn = tools_.waiting.isWaiting(name_),
       .isEnding = hasProcess() && isEnding(),
       .isOutOfReach = isOutOfReach(),
       .isStarted = facts().switchedOn && facts().statusEnabled,
       .isStartedAgain = isPolicys_,
       .isRefused = (hasRow_ && !wanted_) ||
                    (isWanted && (image_.kind == ImageVerdict::Kind::refused || !noRoom_.empty())),
       .agentState = status_ ? status_->state() : rt::String(),
       .startsAfter = awaitsTurn_ ? tools_.order.after(name_) : rt::String(),
       .turnAt = awaitsTurn_ ? tools_.order.turnAt(name_) : rt::Seconds::infinity(),
       .tryAt = isWanted && !awaitsImage_ ? pacing_.tryAt() : rt::Seconds::infinity(),
       .stopAt = pacing_.stopAt() - shimsOwn});
}

void VmKeeper::showRowProblem() {
  const auto unknown = hasProcess() ? unknownGuest() : std::nullopt;
  const rt::String& row = rowProblem_.empty() ? tools_.own.problem(name_) : rowProblem_;
  tools_.problems.problemIs(name_, ProblemSource::config,
                            unknown ? problemOf(name_, *unknown) : row);
}

// Of a VM that is to be off, nothing is wrong with its image.
void VmKeeper::showImage() {
  const bool isWanted = wanted_ && wanted_->enabled() && !mustGo();
  if (!isWanted) image_ = {};
  tools_.problems.problemIs(name_, ProblemSource::image, image_.problem);
  tools_.problems.problemIs(name_, ProblemSource::format, image_.note);
  if (!isWanted && !hasProcess()) tools_.images.release(name_);
}

void VmKeeper::showRoom() {
  const bool isWanted = wanted_ && wanted_->enabled() && !mustGo();
  if (!isWanted) noRoom_ = {};
  if (noRoom_.empty()) tools_.budget.release(name_);
  tools_.problems.problemIs(name_, ProblemSource::memory, noRoom_);
}

// A shim that was killed takes nothing back.
void VmKeeper::showGuestProblem() {
  tools_.problems.problemIs(name_, ProblemSource::guest,
                            hasProcess() ? guestProblem_ : rt::String());
}

// Its image is to be opened as something else than it was.
bool VmKeeper::hasOtherFormat() const {
  if (!startedWith_ || !wanted_ || !hasProcess() || startedFormat_.empty()) return false;
  if (startedWith_->diskImage() != wanted_->diskImage()) return false;
  const rt::String format = tools_.images.format(name_, wanted_->diskImage());
  return !format.empty() && format != startedFormat_;
}

void VmKeeper::showRestartNeeded() {
  rt::String fields;
  if (startedWith_ && wanted_ && hasProcess())
    for (const std::string_view field : model::fieldsForNextStart(*startedWith_, *wanted_))
      (fields += fields.empty() ? "" : ", ") += field;
  if (hasOtherFormat()) (fields += fields.empty() ? "" : ", ") += "format";
  if (!fields.empty())
    fields += ": changed since the guest was started; 'vmctl restart " + name_ + "' applies it";
  tools_.problems.problemIs(name_, ProblemSource::restart, fields);
}

}  // namespace host
