#include "host/VmSupervisor.h"

#include <algorithm>

#include "host/Report.h"

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
  tools_.note = [this](const rt::String& vm) { noted_.insert(vm); };
}

VmKeeper& VmSupervisor::keeper(const rt::String& vm) {
  auto& found = keepers_[vm];
  if (found) return *found;
  const auto known = restartsDone_.find(vm);
  const auto asked = restarts_.find(vm);
  const uint64_t number = asked == restarts_.end() ? 0 : asked->second;
  // Of a VM that is seen for the first time, all that was asked is past.
  found = rt::make<VmKeeper>(tools_, vm, known == restartsDone_.end() ? number : known->second);
  found->restartIs(number);
  return *found;
}

void VmSupervisor::rowIs(const rt::String& vm, const VmRow* row) {
  if (row || keepers_.contains(vm)) keeper(vm).rowIs(row);
}

void VmSupervisor::restartIs(const rt::String& vm, uint64_t number) {
  restarts_[vm] = number;
  if (const auto found = keepers_.find(vm); found != keepers_.end())
    found->second->restartIs(number);
}

void VmSupervisor::survivorsIs(const rt::String& vm, size_t count) {
  if (count > 0 || keepers_.contains(vm)) keeper(vm).survivorsIs(count);
}

bool VmSupervisor::pass() {
  std::set<rt::String> todo = std::exchange(noted_, {});
  while (!todo.empty()) {
    const rt::String vm = todo.extract(todo.begin()).value();
    if (!act(vm)) continue;
    noted_.insert(vm);
    noted_.merge(todo);
    break;
  }
  return !noted_.empty();
}

bool VmSupervisor::act(const rt::String& vm) {
  const auto found = keepers_.find(vm);
  if (found == keepers_.end()) return false;
  const VmKeeper::Ptr keeper = found->second;
  const rt::Seconds now = clock_.notifier()->now();
  bool acted = false;
  const rt::String failure = failureOf([&] { acted = keeper->act(now); });
  if (!failure.empty()) {
    report("VM " + vm + ": " + failure);
    tools_.problems.problemIs(vm, ProblemSource::agent, failure);
  }
  sleep(vm, keeper->wakeUp());
  if (!keeper->isDone()) return acted;
  keepers_.erase(vm);
  wakeUps_.erase(vm);
  restartsDone_.erase(vm);
  tools_.problems.vmDel(vm);
  tools_.hostStatus->vmProcessDel(vm);
  return acted;
}

void VmSupervisor::sleep(const rt::String& vm, rt::Seconds until) {
  if (until == rt::Seconds::infinity()) {
    wakeUps_.erase(vm);
    return;
  }
  wakeUps_[vm] = until;
  if (clock_.timeMin() <= clock_.notifier()->now() || until < clock_.timeMin())
    clock_.timeMinIs(until);
}

void VmSupervisor::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  rt::Seconds next = rt::Seconds::infinity();
  for (const auto& [vm, time] : wakeUps_) {
    if (time <= now)
      noted_.insert(vm);
    else
      next = std::min(next, time);
  }
  if (next < rt::Seconds::infinity()) clock_.timeMinIs(next);
}

}  // namespace host
