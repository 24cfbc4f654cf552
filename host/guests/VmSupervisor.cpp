#include "host/guests/VmSupervisor.h"

#include "host/base/Report.h"

namespace host {

VmSupervisor::VmSupervisor(KeeperTools tools, std::map<rt::String, uint64_t> restartsDone,
                           rt::Clock::Ptr clock)
    : tools_(std::move(tools)),
      restartsDone_(std::move(restartsDone)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void VmSupervisor::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

VmKeeper& VmSupervisor::keeper(const rt::String& vm) {
  auto& found = keepers_[vm];
  if (found) return *found;
  const auto known = restartsDone_.find(vm);
  const auto asked = restarts_.find(vm);
  const Restart restart = asked == restarts_.end() ? Restart() : asked->second;
  // Of a VM that is seen for the first time, all that was asked is past.
  found = rt::make<VmKeeper>(tools_, queue_, vm,
                             known == restartsDone_.end() ? restart.number : known->second);
  found->restartIs(restart.number, restart.ifEnded);
  if (const auto stop = stops_.find(vm); stop != stops_.end())
    found->stopIs(stop->second.number, stop->second.within);
  return *found;
}

void VmSupervisor::rowIs(const rt::String& vm, const VmRow* row) {
  const bool hasRow = row && !row->isLost;
  if (hasRow || keepers_.contains(vm)) keeper(vm).rowIs(row);
}

void VmSupervisor::restartIs(const rt::String& vm, uint64_t number, bool ifEnded) {
  restarts_[vm] = {number, ifEnded};
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->restartIs(number, ifEnded);
}

void VmSupervisor::stopIs(const rt::String& vm, uint64_t number, int32_t within) {
  stops_[vm] = {number, within};
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->stopIs(number, within);
}

void VmSupervisor::restartIsPast(const rt::String& vm, uint64_t number) {
  restarts_[vm] = {number};
  restartsDone_[vm] = number;
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->restartIsPast(number);
}

void VmSupervisor::givenUpIs(const rt::String& vm, const rt::String& guest) {
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->givenUpIs(guest);
}

void VmSupervisor::guestProblemIs(const rt::String& vm, const rt::String& problem) {
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->guestProblemIs(problem);
}

void VmSupervisor::survivorsIs(const rt::String& vm, size_t count) {
  if (count > 0 || keepers_.contains(vm)) keeper(vm).survivorsIs(count);
}

void VmSupervisor::adoptableIs(const rt::String& vm, bool adoptable) {
  if (adoptable || keepers_.contains(vm)) keeper(vm).adoptableIs(adoptable);
}

void VmSupervisor::unknownIs(const rt::String& vm, std::optional<UnknownGuest> guest) {
  if (guest || keepers_.contains(vm)) keeper(vm).unknownIs(std::move(guest));
}

void VmSupervisor::imageIsKnown(const rt::String& vm) {
  if (const auto found = keepers_.find(vm); found != keepers_.end()) found->second->imageIsKnown();
}

void VmSupervisor::ownRowsAreKnown(const rt::String& vm) {
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->ownRowsAreKnown();
}

void VmSupervisor::begin() {
  std::vector<StartOrder::Place> places;
  for (const auto& [vm, keeper] : keepers_) {
    if (!keeper->isToBeStarted()) continue;
    const auto policy = tools_.own.policy(vm);
    places.push_back({vm, policy->startOrder(), rt::Seconds(policy->startDelay())});
  }
  tools_.order.placesAre(std::move(places), clock_.notifier()->now());
}

bool VmSupervisor::pass() {
  // In turn, so that none starves that waits behind one with always more to do.
  for (size_t left = queue_.size(); left > 0; --left) {
    const rt::String vm = queue_.next();
    if (!act(vm)) continue;
    queue_.note(vm);
    break;
  }
  return queue_.size() > 0;
}

bool VmSupervisor::act(const rt::String& vm) {
  const auto found = keepers_.find(vm);
  if (found == keepers_.end()) return false;
  const VmKeeper::Ptr keeper = found->second;
  const rt::Seconds now = clock_.notifier()->now();
  bool acted = false;
  const rt::String failure = failureOf([&] { acted = keeper->act(now); });
  if (failure.empty()) {
    failures_.erase(vm);
    wakeUpIs(vm, keeper->wakeUp());
  } else {
    fail(vm, failure);
    wakeUpIs(vm, now + Pacing::firstDelay);  // to go on where it was
  }
  if (keeper->isDone()) drop(vm);
  for (const rt::String& freed : tools_.order.takeFreed()) queue_.note(freed);
  return acted;
}

void VmSupervisor::fail(const rt::String& vm, const rt::String& failure) {
  if (std::exchange(failures_[vm], failure) != failure) report("VM " + vm + ": " + failure);
  tools_.problems.problemIs(vm, ProblemSource::agent, failure);
}

void VmSupervisor::drop(const rt::String& vm) {
  keepers_.erase(vm);
  wakeUpIs(vm, rt::Seconds::infinity());
  restartsDone_.erase(vm);
  failures_.erase(vm);
  tools_.problems.vmDel(vm);
  tools_.states.vmDel(vm);
  tools_.hostStatus->vmProcessDel(vm);
}

void VmSupervisor::wakeUpIs(const rt::String& vm, rt::Seconds time) {
  if (const auto known = wakeUps_.find(vm); known != wakeUps_.end()) {
    wakeUpOrder_.erase({known->second, vm});
    wakeUps_.erase(known);
  }
  if (time < rt::Seconds::infinity()) {
    wakeUps_[vm] = time;
    wakeUpOrder_.insert({time, vm});
  }
  setClock();
}

void VmSupervisor::setClock() {
  clock_.timeMinIs(wakeUpOrder_.empty() ? rt::Seconds::infinity() : wakeUpOrder_.begin()->first);
}

void VmSupervisor::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  while (!wakeUpOrder_.empty() && wakeUpOrder_.begin()->first <= now) {
    const auto due = wakeUpOrder_.extract(wakeUpOrder_.begin());
    wakeUps_.erase(due.value().second);
    queue_.note(due.value().second);
  }
  setClock();
}

}  // namespace host
