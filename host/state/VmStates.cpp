#include "host/state/VmStates.h"

#include <algorithm>
#include <utility>

namespace host {

namespace {

constexpr uint64_t second = 1000;  // ms

void writeRun(model::VmProcess& record, const GuestRun& run) {
  record.qemuPidIs(run.qemu);
  record.qemuVersionIs(run.version);
  record.startedAtIs(run.startedAt / second);
  record.resetsIs(run.resets);
}

// Two clocks are read one behind the other: a second more or less is the same moment.
uint64_t steady(uint64_t before, uint64_t now) {
  return now + 1 == before || now == before + 1 ? before : now;
}

void writeCounts(model::VmProcess& record, const VmStates::Counts& counts) {
  record.startsIs(counts.starts);
  record.endsIs(model::textOf(counts.ends));
  record.startedRunIs(counts.startedRun);
  record.endedRunIs(counts.endedRun);
}

void countStart(VmStates::Counts& counts, uint64_t run) {
  if (run <= counts.startedRun) return;
  counts.startedRun = run;
  ++counts.starts;
}

void countEnd(VmStates::Counts& counts, uint64_t run, EndCause cause) {
  if (run <= counts.endedRun) return;
  counts.endedRun = run;
  ++counts.ends[textOf(cause)];
}

// That one is stopped which was just added and is off, or which was removed.
bool isSaidByItsRow(const Situation& now, bool isFirst) {
  return actualOf(now) == Actual::stopped &&
         (now.wanted == Wanted::gone || (isFirst && now.wanted == Wanted::stopped));
}

void writeEnd(model::VmProcess& record, const End& end) {
  record.endCauseIs(textOf(end.cause));
  record.endTextIs(end.text);
  record.endByIs(end.by);
  record.endFailedIs(end.isFailure);
  record.endAtIs(end.at / second);
  record.endExitIs(end.exit);
  record.endSignalIs(end.signal);
}

}  // namespace

VmStates::VmStates(HostStatus::Ptr status, Times times, std::map<rt::String, Before> before,
                   Others others, rt::Clock::Ptr clock)
    : status_(std::move(status)),
      times_(std::move(times)),
      before_(std::move(before)),
      others_(std::move(others)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void VmStates::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  setClock();
}

VmStates::Entry& VmStates::entryOf(const rt::String& vm) {
  const auto [found, isNew] = entries_.try_emplace(vm);
  const auto before = isNew ? before_.find(vm) : before_.end();
  if (before == before_.end()) return found->second;
  found->second.counts = before->second.counts;
  found->second.end = before->second.end;
  return found->second;
}

void VmStates::keeperSays(const rt::String& vm, const KeeperView& view) {
  const bool hasLost = entryOf(vm).view.hasProcess && !view.hasProcess;
  if (hasLost) others_.catchUp(vm);
  Entry& entry = entryOf(vm);
  entry.view = view;
  entry.isKnown = true;
  judgeEnd(vm, entry);
  countAttempts(entry);
  show(vm, entry);
}

void VmStates::turnEnds(const rt::String& vm) {
  inTurn_ = {};
  if (const auto found = entries_.find(vm); found != entries_.end()) show(vm, found->second);
}

void VmStates::vmDel(const rt::String& vm) {
  if (const auto found = entries_.find(vm); found != entries_.end())
    buried_[vm] = found->second.run.run;
  entries_.erase(vm);
  before_.erase(vm);
  others_.gone(vm);
  setClock();
}

void VmStates::eventIs(const GuestEvent& event) {
  if (const auto found = buried_.find(event.vm());
      found != buried_.end() && event.run() <= found->second)
    return;
  Entry& entry = entryOf(event.vm());
  take(entry.run, event);
  countStart(entry.counts, entry.run.run);
  if (entry.judged != entry.run.run && !entry.run.hasEnded()) others_.runs(event.vm(), entry.run);
  // Its keeper hears of the end in a moment, and says then what comes of it.
  if (judgeEnd(event.vm(), entry) && entry.view.hasProcess) return;
  show(event.vm(), entry);
}

void VmStates::overdueIs(const rt::String& vm) {
  if (const auto found = entries_.find(vm); found != entries_.end()) found->second.isOverdue = true;
}

void VmStates::unansweredIs(const rt::String& vm, bool isUnanswered) {
  const auto found = entries_.find(vm);
  if (found == entries_.end() || found->second.isUnanswered == isUnanswered) return;
  found->second.isUnanswered = isUnanswered;
  show(vm, found->second);
}

void VmStates::cardIs(const rt::String& vm, const CardTrouble& card) {
  const auto found = entries_.find(vm);
  if (found == entries_.end() || found->second.card == card) return;
  found->second.card = card;
  show(vm, found->second);
}

void VmStates::problemIs(const rt::String& vm, const rt::String& text,
                         model::ProblemSource source) {
  const auto found = entries_.find(vm);
  if (found == entries_.end() && text.empty()) return;
  Entry& entry = entryOf(vm);
  entry.problem = text;
  entry.problemSource = source;
  show(vm, entry);
}

// Of a run whose end its shim has told, or has left untold: its word counts more than what was
// guessed.
bool VmStates::judgeEnd(const rt::String& vm, Entry& entry) {
  const bool isGuessed = entry.end.cause == EndCause::shimLost;
  const bool isJudged = entry.judged == entry.run.run && !(isGuessed && entry.run.hasEnded());
  if (isJudged || (!entry.run.hasEnded() && !entry.isKnown)) return false;
  const bool mayGoOn = entry.view.hasProcess || entry.view.mayGoOn;
  const End end = endOf(
      entry.run, {.hasProcess = mayGoOn, .isOverdue = entry.isOverdue, .askedBy = entry.askedBy});
  if (end.cause == EndCause::none) return false;
  entry.isOverdue = false;
  entry.judged = entry.run.run;
  countEnd(entry.counts, entry.judged, end.cause);
  entry.end = end;
  if (entry.end.at == 0) entry.end.at = times_.ofDay();
  entry.isEndNews = true;
  others_.tell(eventOf(vm, entry.end, entry.run.run));
  others_.ended(vm, entry.run.run, entry.end);
  return true;
}

// What an end has said just now is not said again.
void VmStates::tellState(const rt::String& vm, Entry& entry, const Situation& now) {
  const Actual actual = actualOf(now);
  const bool isOver = !now.hasProcess && (actual == Actual::stopped || actual == Actual::crashed);
  if (std::exchange(entry.isEndNews, false) && isOver) return;
  const rt::String resumedBy = std::exchange(entry.run.resumedBy, rt::String());
  const Reason reason = reasonOf(now);
  const auto event = rt::make<model::Event>("");
  event->kindIs(model::eventKind::state);
  event->vmIs(vm);
  event->reasonIs(textOf(actual));
  event->severityIs(severityOf(now));
  event->textIs(!reason.text.empty()         ? reason.text
                : actual == Actual::running  ? rt::String("its guest runs")
                : actual == Actual::starting ? rt::String("it is started")
                                             : "it is " + textOf(actual));
  event->byIs(actual == Actual::paused     ? now.run.pausedBy
              : actual == Actual::stopping ? now.askedBy
              : actual == Actual::running  ? resumedBy
                                           : rt::String());
  event->atIs(times_.ofDay());
  others_.tell(event);
}

std::optional<End> VmStates::lastEnd(const rt::String& vm) const {
  const auto found = entries_.find(vm);
  if (found == entries_.end() || found->second.run.run == 0 ||
      found->second.judged != found->second.run.run)
    return std::nullopt;
  return found->second.end.cause == EndCause::none ? std::nullopt
                                                   : std::optional(found->second.end);
}

void VmStates::askedBy(const rt::String& vm, const rt::String& who) {
  if (const auto found = entries_.find(vm); found != entries_.end()) found->second.askedBy = who;
}

rt::String VmStates::takeResetBy(const rt::String& vm) {
  const auto found = entries_.find(vm);
  if (found == entries_.end()) return {};
  return std::exchange(found->second.run.resetBy, rt::String());
}

void VmStates::countAttempts(Entry& entry) const {
  const KeeperView& view = entry.view;
  const bool isTriedAnew = view.tryAt != rt::Seconds::infinity() && view.tryAt != entry.lastTry;
  if (isTriedAnew && !view.hasProcess) ++entry.attempt;
  entry.lastTry = view.tryAt;
}

std::optional<uint64_t> VmStates::upAt(rt::Seconds time) const {
  if (time == rt::Seconds::infinity()) return std::nullopt;
  const double left = std::max(0.0, (time - clock_.notifier()->now()).value());
  return times_.sinceBoot() + static_cast<uint64_t>(left * static_cast<double>(second));
}

uint64_t VmStates::timeOfDayAt(uint64_t up) const {
  const uint64_t now = times_.sinceBoot();
  return times_.ofDay() / second + (up > now ? (up - now + second - 1) / second : 0);
}

Situation VmStates::situationOf(const Entry& entry) const {
  const KeeperView& view = entry.view;
  return {.wanted = view.wanted,
          .hasProcess = view.hasProcess,
          .isEnding = view.isEnding,
          .isOutOfReach = view.isOutOfReach,
          .isUnanswered = entry.isUnanswered,
          .isStarted = view.isStarted,
          .isStartedAgain = view.isStartedAgain,
          .isRefused = view.isRefused,
          .agentState = view.agentState,
          .startsAfter = view.startsAfter,
          .turnUp = upAt(view.turnAt),
          .nextUp = upAt(view.tryAt),
          .stopUp = upAt(view.stopAt),
          // One that has ended says nothing of a process that is there now.
          .run = entry.judged == entry.run.run ? GuestRun{} : entry.run,
          .end = entry.end,
          .askedBy = entry.run.endedBy.empty() ? entry.askedBy : entry.run.endedBy,
          .problem = entry.problem,
          .problemSource = entry.problemSource,
          .card = entry.card,
          .nowUp = times_.sinceBoot()};
}

void VmStates::show(const rt::String& vm, Entry& entry) {
  if (!entry.isKnown || vm == inTurn_) return;
  const Situation now = situationOf(entry);
  const auto record = status_->vmProcessIs(vm);
  if (actualOf(now) == Actual::running || now.wanted != Wanted::running) entry.attempt = 0;
  const bool isFirst = record->actual().empty();
  const bool isOther = writeSince(*record, vm, textOf(actualOf(now)));
  if (isOther && !isSaidByItsRow(now, isFirst)) tellState(vm, entry, now);
  write(*record, vm, now);
  writeCounts(*record, entry.counts);
  record->attemptIs(entry.attempt);
  const auto wakeUp = wakeUpOf(now);
  const double left = wakeUp ? static_cast<double>(*wakeUp - now.nowUp) : 0;
  const rt::Seconds at =
      wakeUp ? clock_.notifier()->now() + rt::Seconds(left / static_cast<double>(second))
             : rt::Seconds::infinity();
  // That looks at all VMs, which is too much for each word of each of thousands.
  if (std::exchange(entry.wakeUp, at) != at) setClock();
}

// Of what was so already when the daemon came, the time is the earlier daemon's.
bool VmStates::writeSince(model::VmProcess& record, const rt::String& vm,
                          const rt::String& actual) {
  const auto known = before_.find(vm);
  const bool wasSo = known != before_.end() && known->second.actual == actual;
  const bool isOther = record.actual() != actual;
  if (isOther) record.sinceIs(wasSo ? known->second.since : times_.ofDay() / second);
  if (known != before_.end()) before_.erase(known);
  return isOther && !wasSo;
}

void VmStates::write(model::VmProcess& record, const rt::String& vm, const Situation& now) const {
  const Reason reason = reasonOf(now);
  const NextStep next = nextOf(now, vm);
  record.wantedIs(textOf(now.wanted));
  record.actualIs(textOf(actualOf(now)));
  record.severityIs(severityOf(now));
  record.reasonIs(reason.word);
  record.whyIs(reason.text);
  record.whyShortIs(reason.brief);
  record.whySubjectIs(reason.subject);
  record.whySinceIs(reason.since);
  record.nextKindIs(next.kind);
  record.nextIs(next.text);
  record.nextShortIs(next.brief);
  record.nextCommandIs(next.command);
  record.nextAtIs(steady(record.nextAt(), next.up ? timeOfDayAt(*next.up) : 0));
  record.stopDeadlineIs(now.hasProcess && now.stopUp ? timeOfDayAt(*now.stopUp) : 0);
  writeRun(record, now.hasProcess ? now.run : GuestRun{});
  writeEnd(record, now.end);
}

void VmStates::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  std::vector<rt::String> due;
  for (const auto& [vm, entry] : entries_)
    if (entry.wakeUp <= now) due.push_back(vm);
  for (const rt::String& vm : due) show(vm, entries_[vm]);
  setClock();
}

void VmStates::setClock() {
  rt::Seconds first = rt::Seconds::infinity();
  for (const auto& [vm, entry] : entries_) first = std::min(first, entry.wakeUp);
  clock_.timeMinIs(first);
}

model::Event::Ptr eventOf(const rt::String& vm, const End& end, uint64_t run) {
  auto event = rt::make<model::Event>("");
  event->kindIs(model::eventKind::end);
  event->vmIs(vm);
  event->reasonIs(textOf(end.cause));
  event->severityIs(end.isFailure ? "bad" : "note");
  event->textIs(end.text);
  event->byIs(end.by);
  event->atIs(end.at);
  event->runIs(run);
  return event;
}

}  // namespace host
