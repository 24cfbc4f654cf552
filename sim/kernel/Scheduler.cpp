#include "sim/kernel/Scheduler.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace sim {

Scheduler::Scheduler(Choices& choices) : choice_(choices.stream("turn")), environment_(environ) {}

void Scheduler::unload() {
  loaded_ = nullptr;
  ProductImage::fresh().put();
  environ = environment_;
}

void Scheduler::runUntil(Time end) {
  while (turn(end)) continue;
}

bool Scheduler::runUntil(const std::function<bool()>& holds, Time end) {
  while (!holds())
    if (!turn(end)) return holds();
  return true;
}

// False when that time has come.
bool Scheduler::turn(Time end) {
  // Whoever waits for something looks again before more happens.
  const bool isDue = timers_.next() <= now_;
  if (isDue) timers_.pass(now_);
  if (stopped_ || now_ >= end) return false;
  if (isDue) return true;
  if (Process* const next = pick()) {
    run(*next);
    return true;
  }
  now_ = std::min(timers_.next(), end);
  return now_ < end;
}

Process* Scheduler::pick() {
  if (ready_.empty()) return nullptr;
  auto chosen = ready_.begin();
  if (ready_.size() > 1 && manners.byPriority) {
    const auto first = [](const Process* a, const Process* b) { return a->priority < b->priority; };
    chosen = std::min_element(ready_.begin(), ready_.end(), first);
    if (choice_.oneIn(manners.newPriorityOnceIn)) {
      (*chosen)->priority += uint64_t{1} << 32;
      chosen = std::min_element(ready_.begin(), ready_.end(), first);
    }
  } else if (ready_.size() > 1) {
    chosen += static_cast<std::ptrdiff_t>(choice_.below(ready_.size()));
  }
  Process* const process = *chosen;
  ready_.erase(chosen);
  return process;
}

void Scheduler::run(Process& process) {
  load(process);
  current_ = &process;
  const auto fiber = process.fiber;
  fiber->enter();
  current_ = nullptr;
  buried_.clear();
}

// What is written to the product's data from now on is that process'.
void Scheduler::load(Process& process) {
  if (loaded_ == &process) return;
  if (loaded_) {
    loaded_->image.take();
    loaded_->environment = environ;
  }
  process.image.put();
  environ = process.environment;
  loaded_ = &process;
}

void Scheduler::ready(Process& process) {
  process.state = Process::State::ready;
  const bool isThere = std::find(ready_.begin(), ready_.end(), &process) != ready_.end();
  if (!process.stopped && !process.held && !isThere) ready_.push_back(&process);
}

Sleep::End Scheduler::sleep(const std::vector<WaitQueue*>& queues, Time deadline,
                            const char* call) {
  Process& process = *current_;
  Sleep& sleep = process.sleep;
  sleep.queues = queues;
  sleep.end = Sleep::End::none;
  sleep.call = call;
  sleep.since = now_;
  process.callsSinceSleep = 0;
  for (WaitQueue* const each : queues) each->add(process);
  if (deadline != never)
    sleep.timer = timers_.add(deadline, [this, &process] {
      process.sleep.timer.reset();
      wake(process, Sleep::End::timedOut);
    });
  process.state = Process::State::sleeping;
  letGo(process);
  process.fiber->leave();
  return sleep.end;
}

void Scheduler::wake(Process& process, Sleep::End why) {
  if (process.state != Process::State::sleeping) return;
  forget(process);
  process.sleep.end = why;
  ready(process);
}

void Scheduler::forget(Process& process) {
  Sleep& sleep = process.sleep;
  for (WaitQueue* const each : sleep.queues) each->remove(process);
  sleep.queues.clear();
  if (sleep.timer) timers_.remove(*sleep.timer);
  sleep.timer.reset();
  ready_.erase(std::remove(ready_.begin(), ready_.end(), &process), ready_.end());
}

void Scheduler::passCall() {
  now_ += manners.callTime;
  if (ready_.empty() && timers_.next() > now_) return;
  if (manners.switchOnceIn > 0 && choice_.oneIn(manners.switchOnceIn)) yield();
}

void Scheduler::letGo(Process& child) {
  const auto parent = std::exchange(child.holds, {}).lock();
  if (!parent) return;
  parent->held = false;
  if (parent->state == Process::State::ready && parent.get() != current_) ready(*parent);
}

void Scheduler::yield() {
  Process& process = *current_;
  ready(process);
  process.fiber->leave();
}

void Scheduler::hold(Process& process) {
  ready_.erase(std::remove(ready_.begin(), ready_.end(), &process), ready_.end());
  if (current_ == &process) yield();
}

void Scheduler::bury(Process& process) {
  forget(process);
  letGo(process);
  if (process.fiber) buried_.push_back(std::move(process.fiber));
  if (loaded_ == &process) loaded_ = nullptr;
}

}  // namespace sim
