#include "sim/oracle/Ledger.h"

#include <algorithm>

namespace sim {

namespace {

constexpr size_t mostCauses = 32;
constexpr Duration answer = std::chrono::milliseconds(50);
constexpr Duration untilSeen = std::chrono::seconds(3);  // it may have to read again
constexpr Duration startsTime = std::chrono::seconds(10);
constexpr Duration daemonsTime = std::chrono::minutes(1);

template <class Causes, class Cause>
void keep(Causes& causes, Cause cause) {
  causes.push_back(std::move(cause));
  if (causes.size() > mostCauses) causes.pop_front();
}

}  // namespace

const Ledger::OfVm* Ledger::find(const std::string& vm) const {
  const auto found = vms_.find(vm);
  return found == vms_.end() ? nullptr : &found->second;
}

void Ledger::mayEnd(const std::string& vm, const std::string& why) {
  keep(of(vm).causes, Cause{now_(), why});
  touch(vm);
}

void Ledger::askToEnd(const std::string& vm, const std::string& why) {
  mayEnd(vm, why);
  of(vm).asked = now_();
}

bool Ledger::wasAskedToEnd(const std::string& vm, Time began) const {
  const OfVm* const its = find(vm);
  // One that began just before may have been the answer.
  return its && its->asked && *its->asked >= began + answer;
}

void Ledger::mayEndAll(const std::string& why) {
  keep(causesOfAll_, Cause{now_(), why});
  touchAll();
}

void Ledger::troubleIs(const std::string& vm, const std::string& trouble, bool stands) {
  if (stands)
    troubles_.emplace(vm, trouble);
  else
    troubles_.erase({vm, trouble});
}

std::optional<std::string> Ledger::troubleOf(const std::string& vm) const {
  for (const auto& [whose, trouble] : troubles_)
    if (whose == vm || whose.empty()) return trouble;
  if (starts_ && now_() <= starts_->at + startsTime) return starts_->why;
  return std::nullopt;
}

void Ledger::daemonMayEnd(const std::string& why) { daemon_ = Cause{now_(), why}; }

std::optional<std::string> Ledger::causeOfEnd(const std::string& vm, Time began) const {
  const auto isOfIt = [&](const Cause& each) { return began <= each.at + grace; };
  const OfVm* const its = find(vm);
  for (const auto* const causes : {its ? &its->causes : nullptr, &causesOfAll_}) {
    if (!causes) continue;
    const auto found = std::find_if(causes->rbegin(), causes->rend(), isOfIt);
    if (found != causes->rend()) return found->why;
  }
  return std::nullopt;
}

std::optional<std::string> Ledger::causeOfDaemonsEnd() const {
  if (daemon_ && now_() <= daemon_->at + daemonsTime) return daemon_->why;
  return troubleOf("");
}

Duration Ledger::calmFor(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return now_() - std::max(its ? its->touched : Time{}, allTouched_);
}

void Ledger::wantedIs(const std::string& vm, std::optional<bool> wanted, Time began) {
  OfVm& its = of(vm);
  if (its.wanted == wanted) return;
  // Who is switched off and on at once may not have been seen off.
  const bool wasSeenOff = its.wanted == false && now_() - its.wantedSince > untilSeen;
  if (wasSeenOff && its.standsSince <= began) its.stands.reset();
  if (wanted == true && !wasSeenOff) its.asked.reset();
  its.wanted = wanted;
  its.wantedSince = now_();
}

std::optional<bool> Ledger::wanted(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return its ? its->wanted : std::nullopt;
}

Time Ledger::wantedSince(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return its ? its->wantedSince : Time{};
}

void Ledger::handleEnd(const std::string& vm, const std::string& why, bool isProblem) {
  of(vm).stands = why;
  of(vm).isProblem = isProblem;
  of(vm).standsSince = now_();
}

void Ledger::handleAsked(const std::string& vm, Time began) {
  OfVm& its = of(vm);
  if (its.standsSince <= began) its.stands.reset();
  its.isLost = false;
}

void Ledger::handleLost(const std::string& vm) {
  of(vm).isLost = true;
  of(vm).lostSince = now_();
}

bool Ledger::wasLost(const std::string& vm, Time began) const {
  const OfVm* const its = find(vm);
  return its && its->lostSince > began;
}

void Ledger::lastWordIs(const std::string& vm, const std::string& word) {
  of(vm).lastWord = Cause{now_(), word};
}

std::optional<std::string> Ledger::lastWordOf(const std::string& vm) const {
  const OfVm* const its = find(vm);
  if (!its || !its->lastWord || troubleOf(vm)) return std::nullopt;
  const Time at = its->lastWord->at;
  const bool isLast = its->touched <= at &&
                      (causesOfAll_.empty() || causesOfAll_.back().at <= at) &&
                      (!starts_ || starts_->at <= at);
  return isLast ? std::optional(its->lastWord->why) : std::nullopt;
}

bool Ledger::isLost(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return its && its->isLost;
}

bool Ledger::standsWell(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return its && its->stands && !its->isProblem;
}

void Ledger::handleAskedAll() {
  for (auto& [vm, its] : vms_) {
    its.stands.reset();
    its.isLost = false;
  }
}

std::optional<std::string> Ledger::standsBecause(const std::string& vm) const {
  const OfVm* const its = find(vm);
  return its ? its->stands : std::nullopt;
}

}  // namespace sim
