#include "ctl/verbs/Waiting.h"

#include <unistd.h>

#include <algorithm>

#include "ctl/view/StateView.h"
#include "model/ProblemSource.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

// How often the progress line is written anew and the daemon is looked for.
constexpr rt::Seconds beat(1);

constexpr const char* clearLine = "\r\x1b[K";

// A problem of that source. That a change waits for the next restart does not, nor what a disk
// begins as, nor a card without a line.
bool keepsFromHappening(const rt::String& source) {
  using enum model::ProblemSource;
  return source != textOf(restart) && source != textOf(format) && source != textOf(line);
}

}  // namespace

Waiter::Waiter(Context& context, rt::Seconds patience)
    : context_(context),
      begin_(context.world().now()),
      asked_(context.db().store(statedb::Half::config).snapshot({}).cursor),
      patience_(patience),
      status_(context.db().store(statedb::Half::status).wakeUp()),
      config_(context.db().store(statedb::Half::config).wakeUp()) {}

void Waiter::silence() {
  // What changed is not asked for, so any cursor will do.
  (void)context_.db().store(statedb::Half::status).changes({});
  (void)context_.db().store(statedb::Half::config).changes({});
}

// To be asked before the rest is read, which is no older then.
bool Waiter::daemonHasHeard() {
  const auto daemon = daemonStatus(context_);
  return daemon && daemon->configStore() == asked_.storeId &&
         daemon->configSequence() >= asked_.sequence;
}

void Waiter::until(const rt::String& name, const Goal& goal) {
  oldProblem_.reset();
  refusedAt_.reset();
  toldProblem_ = "";
  for (;;) {
    silence();
    const bool isSettled = !goal.needsDaemon || daemonHasHeard();
    const VmRow row = vmNamed(context_, name);
    if (isSettled && goal.isReached(row)) return clearProgress();
    if (goal.needsConfiguration && !row.exists() && !row.isUnknown()) {
      clearProgress();
      throw Refusal(Exit::noSuch, name + ": was removed while it was waited for");
    }
    if (isSettled && isLost(goal, row)) {
      clearProgress();
      throw lost(row);
    }
    tellProblem(row);
    const rt::Seconds left = patience_ - passed();
    if (left <= rt::Seconds(0)) {
      clearProgress();
      throw timedOut(row);
    }
    tellAbsence();
    tellProgress(row);
    const int bells[] = {status_.number(), config_.number()};
    context_.world().waitReadable(bells, std::min(left, beat));
  }
}

// Of an image that is looked at anew, what was found before stands until there is an answer.
bool Waiter::isLost(const Goal& goal, const VmRow& row) {
  if (!goal.isLost) return false;
  if (goal.isLost(row)) return true;
  if (row.process->actual() != "refused")
    refusedAt_.reset();
  else if (!refusedAt_)
    refusedAt_ = passed();
  constexpr rt::Seconds patience(3);
  return refusedAt_ && passed() - *refusedAt_ >= patience;
}

void Waiter::tellProblem(const VmRow& row) {
  const bool isTrouble = row.problem && keepsFromHappening(row.problem->source());
  const rt::String problem = isTrouble ? row.problem->problem() : "";
  if (!oldProblem_) oldProblem_ = problem;
  // It may be out of date: the daemon needs a moment to look again.
  const bool isOld = problem == *oldProblem_ && passed() < beat;
  if (problem == toldProblem_ || isOld) return;
  toldProblem_ = problem;
  if (problem.empty()) return;
  clearProgress();
  context_.complain(row.name + ": " + problem);
}

void Waiter::tellAbsence() {
  if (toldAbsence_ || context_.daemonRuns()) return;
  toldAbsence_ = true;
  clearProgress();
  context_.complain("vmagentd is not running any more: nothing happens until it does");
}

void Waiter::tellProgress(const VmRow& row) {
  if (!context_.world().errIsTerminal) return;
  const rt::String line =
      visible(row.name + ": waiting for " + rt::toText(static_cast<int>(passed().value())) +
              " s: " + progressOf(row));
  // A line that wraps could not be taken away.
  context_.world().err << clearLine << cut(line, context_.world().columns - 1) << std::flush;
  hasProgress_ = true;
}

void Waiter::clearProgress() {
  if (hasProgress_) context_.world().err << clearLine << std::flush;
  hasProgress_ = false;
}

// What is waited for now, and how long it takes still, where that is known.
rt::String Waiter::progressOf(const VmRow& row) const {
  rt::String text = row.process->actual();
  if (text.empty()) return whatIsSo(row);
  if (const rt::String why = whyOf(row, {}); !why.empty()) text += ", " + why;
  const bool isByItself = row.process->nextKind() == "auto";
  if (isByItself) text += "; it " + nextOf(row, {.now = context_.world().timeOfDay()});
  return text;
}

Refusal Waiter::timedOut(const VmRow& row) const {
  rt::String sentence =
      row.name + ": timed out after " + rt::toText(patience_) + " s: " + whatIsSo(row);
  if (row.problem) sentence += "; " + row.problem->problem();
  return {Exit::timedOut, sentence};
}

Refusal Waiter::lost(const VmRow& row) const {
  const bool isTold = !row.problem || row.problem->problem() == toldProblem_;
  if (row.process->actual() == "refused")
    return {Exit::failed, row.name + ": its start is refused" +
                              (isTold ? rt::String() : ": " + row.problem->problem())};
  return {Exit::failed, row.name + ": its guest has ended" +
                            (isTold ? rt::String() : ": " + row.problem->problem())};
}

rt::String whatIsSo(const VmRow& row) {
  const rt::String process = "process is " + row.process->process();
  if (!row.status) return "there is no status, " + process;
  const rt::String& state = row.status->state();
  return "enabled is " + rt::toText(row.status->enabled()) +
         (state.empty() ? rt::String(", there is no state yet, ")
                        : ", state is '" + state + "', ") +
         process;
}

}  // namespace ctl
