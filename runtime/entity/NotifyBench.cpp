// One change of a number, heard by 0, 1, 8 and 1000 listeners: our reactors beside other ways.
//
// All do the same work: the subject compares, stores and tells; each listener adds the new value
// up. Only reactors read the value from the subject, the others are handed it.
#include <benchmark/benchmark.h>

#include <boost/signals2.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/AllocationCounter.h"

namespace rt::notifyBench {

class Dial final : public EntityOf<Dial> {
 public:
  uint32_t value() const { return value_; }
  void valueIs(uint32_t value) { assign<&Dial::value>(value_, value); }

  static constexpr std::string_view typeName = "Bench::Dial";
  using Attributes = AttributeTable<Attribute<"value", &Dial::value, &Dial::valueIs>>;

 private:
  uint32_t value_ = 0;
};

class DialSm final : public StateMachineOf<DialSm> {
 public:
  explicit DialSm(Dial::PtrConst dial) : dial_(*this, std::move(dial)) {}

  void handleValue() {
    sum_ += dial_->value();
    benchmark::DoNotOptimize(sum_);
  }

  static constexpr std::string_view typeName = "Bench::DialSm";
  using Attributes = AttributeTable<Attribute<"initialized", &DialSm::initialized>>;

 private:
  uint64_t sum_ = 0;
  Reactor<DialSm, const Dial, On<&Dial::value, &DialSm::handleValue>> dial_;
};

class Reactors {
 public:
  explicit Reactors(int64_t listeners) {
    for (int64_t i = 0; i < listeners; ++i) machines_.push_back(make<DialSm>(dial_));
  }
  void valueIs(uint32_t value) { dial_->valueIs(value); }

 private:
  const Ptr<Dial> dial_ = make<Dial>();
  std::vector<Ptr<DialSm>> machines_;
};

class Listener {
 public:
  Listener() = default;
  Listener(const Listener&) = delete;
  virtual ~Listener() = default;
  virtual void handleValue(uint32_t value) = 0;
};

class Sum final : public Listener {
 public:
  void handleValue(uint32_t value) override {
    sum_ += value;
    benchmark::DoNotOptimize(sum_);
  }

 private:
  uint64_t sum_ = 0;
};

// Never made, but the compiler must not know, or it would make plain calls of the virtual ones.
class Difference final : public Listener {
 public:
  void handleValue(uint32_t value) override {
    difference_ -= value;
    benchmark::DoNotOptimize(difference_);
  }

 private:
  uint64_t difference_ = 0;
};

class VirtualCalls {
 public:
  explicit VirtualCalls(int64_t listeners) {
    bool odd = false;
    benchmark::DoNotOptimize(odd);
    for (int64_t i = 0; i < listeners; ++i)
      if (odd)
        listeners_.push_back(std::make_unique<Difference>());
      else
        listeners_.push_back(std::make_unique<Sum>());
  }
  void valueIs(uint32_t value) {
    if (value_ == value) return;
    value_ = value;
    for (const auto& listener : listeners_) listener->handleValue(value);
  }

 private:
  uint32_t value_ = 0;
  std::vector<std::unique_ptr<Listener>> listeners_;
};

class Functions {
 public:
  explicit Functions(int64_t listeners) {
    for (int64_t i = 0; i < listeners; ++i) {
      sums_.push_back(std::make_unique<Sum>());
      listeners_.emplace_back([sum = sums_.back().get()](uint32_t v) { sum->handleValue(v); });
    }
  }
  void valueIs(uint32_t value) {
    if (value_ == value) return;
    value_ = value;
    for (const auto& listener : listeners_) listener(value);
  }

 private:
  uint32_t value_ = 0;
  std::vector<std::unique_ptr<Sum>> sums_;
  std::vector<std::function<void(uint32_t)>> listeners_;
};

template <class Signal>
class Signals {
 public:
  explicit Signals(int64_t listeners) {
    for (int64_t i = 0; i < listeners; ++i) {
      sums_.push_back(std::make_unique<Sum>());
      changed_.connect([sum = sums_.back().get()](uint32_t v) { sum->handleValue(v); });
    }
  }
  void valueIs(uint32_t value) {
    if (value_ == value) return;
    value_ = value;
    changed_(value);
  }

 private:
  uint32_t value_ = 0;
  std::vector<std::unique_ptr<Sum>> sums_;
  Signal changed_;
};
using BoostSignals = Signals<boost::signals2::signal<void(uint32_t)>>;
// Fit for one thread only, as our reactors are.
using BoostSignalsUnlocked = Signals<boost::signals2::signal_type<
    void(uint32_t), boost::signals2::keywords::mutex_type<boost::signals2::dummy_mutex>>::type>;

template <class Subject>
void change(benchmark::State& state) {
  Subject subject(state.range(0));
  uint32_t value = 0;
  for (int i = 0; i < 100; ++i) subject.valueIs(++value);

  constexpr int counted = 100;
  const size_t before = fakes::allocations();
  for (int i = 0; i < counted; ++i) subject.valueIs(++value);
  const size_t made = fakes::allocations() - before;

  for ([[maybe_unused]] auto _ : state) subject.valueIs(++value);
  state.counters["allocations"] = static_cast<double>(made) / counted;
}

void listeners(benchmark::internal::Benchmark* bench) { bench->Arg(0)->Arg(1)->Arg(8)->Arg(1000); }

BENCHMARK(change<Reactors>)->Name("change/reactors")->Apply(listeners);
BENCHMARK(change<VirtualCalls>)->Name("change/virtualCalls")->Apply(listeners);
BENCHMARK(change<Functions>)->Name("change/functions")->Apply(listeners);
BENCHMARK(change<BoostSignals>)->Name("change/boostSignals2")->Apply(listeners);
BENCHMARK(change<BoostSignalsUnlocked>)->Name("change/boostSignals2Unlocked")->Apply(listeners);

// A reactor's coming and going.
void attach(benchmark::State& state) {
  const auto dial = make<Dial>();
  const auto machine = make<DialSm>(dial);
  using ItsReactor = Reactor<DialSm, const Dial, On<&Dial::value, &DialSm::handleValue>>;
  for ([[maybe_unused]] auto _ : state) {
    ItsReactor reactor(*machine, dial);
    benchmark::DoNotOptimize(reactor);
  }
  state.counters["sizeof"] = sizeof(ItsReactor);
}
BENCHMARK(attach)->Name("attach/reactor");

}  // namespace rt::notifyBench
