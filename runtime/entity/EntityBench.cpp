// Records and their collections: sizes, making, finding, walking, changing, generic access.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/AllocationCounter.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace rt::entityBench {

// Two records that differ in two numbers.
class OneNumber final : public EntityOf<OneNumber> {
 public:
  uint32_t a() const { return a_; }

  static constexpr std::string_view typeName = "Bench::OneNumber";
  using Attributes = AttributeTable<Attribute<"a", &OneNumber::a>>;

 private:
  uint32_t a_ = 0;
};

class ThreeNumbers final : public EntityOf<ThreeNumbers> {
 public:
  uint32_t a() const { return a_; }
  uint32_t b() const { return b_; }
  uint32_t c() const { return c_; }

  static constexpr std::string_view typeName = "Bench::ThreeNumbers";
  using Attributes =
      AttributeTable<Attribute<"a", &ThreeNumbers::a>, Attribute<"b", &ThreeNumbers::b>,
                     Attribute<"c", &ThreeNumbers::c>>;

 private:
  uint32_t a_ = 0;
  uint32_t b_ = 0;
  uint32_t c_ = 0;
};

// Hears of one VM's memory, and of VMs that come and go.
class WatchSm final : public StateMachineOf<WatchSm> {
 public:
  explicit WatchSm(Vm::VmConfig::PtrConst vm, Vm::Config::PtrConst config = nullptr)
      : vm_(*this, std::move(vm)), config_(*this, std::move(config)) {}

  static constexpr std::string_view typeName = "Bench::WatchSm";
  using Attributes = AttributeTable<Attribute<"initialized", &WatchSm::initialized>>;

 private:
  void handleMemory() {
    heard_ += vm_->memory();
    benchmark::DoNotOptimize(heard_);
  }
  void handleVmConfig(const String& name) {
    heard_ += name.size();
    benchmark::DoNotOptimize(heard_);
  }

  uint64_t heard_ = 0;
  Reactor<WatchSm, const Vm::VmConfig, On<&Vm::VmConfig::memory, &WatchSm::handleMemory>> vm_;
  Reactor<WatchSm, const Vm::Config, On<&Vm::Config::vmConfig, &WatchSm::handleVmConfig>> config_;
};

template <class T, class... Args>
void makeOne(benchmark::State& state, const Args&... args) {
  const size_t before = fakes::liveBytes();
  const auto kept = make<T>(args...);
  const size_t heap = fakes::liveBytes() - before;
  state.counters["sizeof"] = sizeof(T);
  state.counters["heap"] = static_cast<double>(heap);
  for ([[maybe_unused]] auto _ : state) {
    auto made = make<T>(args...);
    benchmark::DoNotOptimize(made);
  }
}

void makeVmConfig(benchmark::State& state) { makeOne<Vm::VmConfig>(state, String("vm-00001")); }
BENCHMARK(makeVmConfig)->Name("make/VmConfig");
void makeVmStatus(benchmark::State& state) { makeOne<Vm::VmStatus>(state, String("vm-00001")); }
BENCHMARK(makeVmStatus)->Name("make/VmStatus");
BENCHMARK(makeOne<OneNumber>)->Name("make/OneNumber");
BENCHMARK(makeOne<ThreeNumbers>)->Name("make/ThreeNumbers");

// A collection of `size` VMs, their names in no order, and a map of the same for comparison.
struct Vms {
  explicit Vms(int64_t size) {
    for (int64_t i = 0; i < size; ++i) names.push_back(format("vm-%05d", static_cast<int>(i)));
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
  }
  void fill() {
    for (const String& name : names) map[name] = config->vmConfigIs(name);
  }

  std::vector<String> names;
  const Ptr<Vm::Config> config = make<Vm::Config>();
  std::map<String, Vm::VmConfig::Ptr> map;
};

constexpr int64_t batch = 10'000;  // members, in as many collections as it takes

// Times `work` on each of a batch of collections, which `prepare` readies.
template <class Prepare, class Work>
void timeBatches(benchmark::State& state, Prepare prepare, Work work) {
  std::vector<Vms> all;
  for (int64_t i = 0; i < batch / state.range(0); ++i) all.emplace_back(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    for (Vms& vms : all) prepare(vms);
    const auto start = std::chrono::steady_clock::now();
    for (Vms& vms : all) work(vms);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(took.count());
  }
  state.SetItemsProcessed(state.iterations() * batch);
}

void insert(benchmark::State& state) {
  timeBatches(
      state, [](Vms& vms) { vms.config->vmConfigDelAll(); },
      [](Vms& vms) {
        for (const String& name : vms.names) vms.config->vmConfigIs(name);
      });
}
BENCHMARK(insert)->Name("collection/insert")->Arg(10)->Arg(10'000)->UseManualTime();

void removeOneByOne(benchmark::State& state) {
  timeBatches(
      state,
      [](Vms& vms) {
        for (const String& name : vms.names) vms.config->vmConfigIs(name);
      },
      [](Vms& vms) {
        for (const String& name : vms.names) vms.config->vmConfigDel(name);
      });
}
BENCHMARK(removeOneByOne)->Name("collection/remove")->Arg(10)->Arg(10'000)->UseManualTime();

void lookup(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    auto found = vms.config->vmConfig(vms.names[i]);
    benchmark::DoNotOptimize(found);
    if (++i == vms.names.size()) i = 0;
  }
}
BENCHMARK(lookup)->Name("collection/lookup")->Arg(10)->Arg(10'000);

void lookupInMap(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    auto found = vms.map.find(vms.names[i])->second;
    benchmark::DoNotOptimize(found);
    if (++i == vms.names.size()) i = 0;
  }
}
BENCHMARK(lookupInMap)->Name("map/lookup")->Arg(10)->Arg(10'000);

template <class Members>
void walk(benchmark::State& state, const Members& members) {
  uint64_t sum = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto& [name, vm] : members) sum += vm->memory();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
void walkCollection(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  walk(state, vms.config->vmConfigs());
}
BENCHMARK(walkCollection)->Name("collection/walk")->Arg(10)->Arg(10'000);
void walkMap(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  walk(state, vms.map);
}
BENCHMARK(walkMap)->Name("map/walk")->Arg(10)->Arg(10'000);

// One member changes; every member has its machine.
void changeMember(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  std::vector<Ptr<WatchSm>> machines;
  for (const auto& [name, vm] : vms.config->vmConfigs()) machines.push_back(make<WatchSm>(vm));
  const auto changed = vms.config->vmConfig(vms.names.front());
  uint32_t memory = 0;
  for ([[maybe_unused]] auto _ : state) changed->memoryIs(++memory);
}
BENCHMARK(changeMember)->Name("member/change")->Arg(10)->Arg(10'000);

// One member comes and goes, and a machine hears of both.
void comeAndGo(benchmark::State& state) {
  Vms vms(state.range(0));
  vms.fill();
  const auto machine = make<WatchSm>(nullptr, vms.config);
  const String name = "vm-05000x";
  for ([[maybe_unused]] auto _ : state) {
    vms.config->vmConfigIs(name);
    vms.config->vmConfigDel(name);
  }
}
BENCHMARK(comeAndGo)->Name("member/comeAndGo")->Arg(10)->Arg(10'000);

void readDirectly(benchmark::State& state) {
  auto vm = make<Vm::VmConfig>("web1");
  benchmark::DoNotOptimize(vm);
  for ([[maybe_unused]] auto _ : state) {
    auto text = toText(vm->memory());
    benchmark::DoNotOptimize(text);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(readDirectly)->Name("access/readByGetter");

void readByName(benchmark::State& state) {
  auto vm = make<Vm::VmConfig>("web1");
  benchmark::DoNotOptimize(vm);
  for ([[maybe_unused]] auto _ : state) {
    auto text = attributeText(*vm, "memory");
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(readByName)->Name("access/readByName");

void writeDirectly(benchmark::State& state) {
  auto vm = make<Vm::VmConfig>("web1");
  benchmark::DoNotOptimize(vm);
  const std::string_view texts[] = {"256", "512"};
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state)
    vm->memoryIs(fromText<uint32_t>(texts[++i % 2]).value_or(0));
}
BENCHMARK(writeDirectly)->Name("access/writeByMutator");

void writeByName(benchmark::State& state) {
  auto vm = make<Vm::VmConfig>("web1");
  benchmark::DoNotOptimize(vm);
  const std::string_view texts[] = {"256", "512"};
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state) attributeTextIs(*vm, "memory", texts[++i % 2]);
}
BENCHMARK(writeByName)->Name("access/writeByName");

}  // namespace rt::entityBench
