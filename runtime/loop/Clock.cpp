#include "runtime/loop/Clock.h"

#include <algorithm>
#include <ctime>

#include "runtime/base/Check.h"

namespace rt {

namespace {

// Whether `a` is woken before `b`.
bool earlier(Seconds aTime, uint64_t aOrder, Seconds bTime, uint64_t bOrder) {
  return aTime < bTime || (aTime == bTime && aOrder < bOrder);
}

}  // namespace

Seconds SteadyClock::now() const {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return Seconds(static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9);
}

Clock::~Clock() {
  // A wake-up keeps its clock alive.
  check(heap_.empty() && due_.empty(), "a clock is destroyed while wake-ups are set on it");
}

Seconds Clock::nextWakeUp() const {
  if (!due_.empty()) return Seconds(0);
  return heap_.empty() ? Seconds::infinity() : heap_.front()->time_;
}

Seconds Clock::untilNextPass() const {
  const Seconds next = nextWakeUp();
  if (next == Seconds::infinity()) return next;
  const Seconds left = next - now();
  return left > Seconds(0) ? left : Seconds(0);
}

void Clock::collectDue() {
  const Seconds time = now();
  const size_t leftOver = due_.size();  // of a pass that ended early; they come first
  while (!heap_.empty() && heap_.front()->time_ <= time) {
    WakeUp* const first = heap_.front();
    disarm(*first);
    first->state_ = WakeUp::State::due;
    due_.push_back(first);
  }
  std::rotate(due_.begin(), due_.begin() + static_cast<std::ptrdiff_t>(leftOver), due_.end());
  std::reverse(due_.begin(), due_.end() - static_cast<std::ptrdiff_t>(leftOver));
  for (size_t i = 0; i < due_.size(); ++i)
    if (due_[i]) due_[i]->index_ = i;
}

bool Clock::wakeNext() {
  while (!due_.empty() && !due_.back()) due_.pop_back();
  if (due_.empty()) return false;
  WakeUp* const next = due_.back();
  due_.pop_back();
  next->state_ = WakeUp::State::silent;
  const Clock::Ptr alive(this);
  next->wake();
  return true;
}

void Clock::arm(WakeUp& wakeUp) {
  disarm(wakeUp);
  wakeUp.order_ = nextOrder_++;
  wakeUp.state_ = WakeUp::State::armed;
  heap_.push_back(&wakeUp);
  siftUp(heap_.size() - 1);
}

void Clock::disarm(WakeUp& wakeUp) {
  const auto state = std::exchange(wakeUp.state_, WakeUp::State::silent);
  if (state == WakeUp::State::due) {
    due_[wakeUp.index_] = nullptr;
    while (!due_.empty() && !due_.back()) due_.pop_back();
  }
  if (state != WakeUp::State::armed) return;
  const size_t hole = wakeUp.index_;
  WakeUp* const last = heap_.back();
  heap_.pop_back();
  if (last == &wakeUp) return;
  place(hole, last);
  siftUp(hole);
  siftDown(last->index_);
}

void Clock::place(size_t index, WakeUp* wakeUp) {
  heap_[index] = wakeUp;
  wakeUp->index_ = index;
}

void Clock::siftUp(size_t index) {
  WakeUp* const moved = heap_[index];
  while (index > 0) {
    WakeUp* const above = heap_[(index - 1) / 2];
    if (!earlier(moved->time_, moved->order_, above->time_, above->order_)) break;
    place(index, above);
    index = (index - 1) / 2;
  }
  place(index, moved);
}

void Clock::siftDown(size_t index) {
  WakeUp* const moved = heap_[index];
  while (true) {
    size_t below = 2 * index + 1;
    if (below >= heap_.size()) break;
    if (below + 1 < heap_.size() && earlier(heap_[below + 1]->time_, heap_[below + 1]->order_,
                                            heap_[below]->time_, heap_[below]->order_))
      ++below;
    if (!earlier(heap_[below]->time_, heap_[below]->order_, moved->time_, moved->order_)) break;
    place(index, heap_[below]);
    index = below;
  }
  place(index, moved);
}

WakeUp::WakeUp(StateMachine& owner, Ptr<Clock> clock)
    : HandlerSource(nullptr, owner), clock_(std::move(clock)) {
  arm();
}

void WakeUp::arm() {
  if (clock_)
    clock_->arm(*this);
  else
    state_ = State::armed;  // for the clock to come
}

void WakeUp::disarm() {
  if (clock_) clock_->disarm(*this);
  state_ = State::silent;
}

void WakeUp::timeMinIs(Seconds time) {
  disarm();
  time_ = time;
  arm();
}

void WakeUp::notifierIs(Ptr<Clock> clock) {
  if (clock == clock_) return;
  const bool waiting = state_ != State::silent;
  disarm();
  const Ptr<Clock> old = std::exchange(clock_, std::move(clock));
  if (waiting) arm();
  if (old && clock_) wake();
}

void WakeUp::wake() {
  StateMachine* const machine = listener();
  if (!machine || clock_->deletionMark()) return;
  const Ptr<StateMachine> alive(machine);
  call(*machine);
}

}  // namespace rt
