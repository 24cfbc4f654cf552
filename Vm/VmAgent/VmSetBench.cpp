// Many configured VMs: time to load, memory, and what one change costs beside them.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "Vm/VmAgent/VmRoot.h"
#include "runtime/fakes/AllocationCounter.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::vmSetBench {

// An agent without a VM, and `count` disabled ones to be added or there before it starts.
struct World {
  explicit World(int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
      names.emplace_back(("vm" + std::to_string(i)).c_str());
      const auto vm = config->vmConfigIs(names.back());
      vm->diskImageIs("/var/lib/images/" + names.back() + ".img");
      vm->memoryIs(256);
    }
  }

  void start() {
    root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(),
                  rt::make<Interface::AllIntfStatusLocalDir>(),
                  rt::make<Interface::DeviceIntfStatusDir>(), rt::make<KernelNetInfo::Status>(),
                  rt::make<Bridging::Input::Config>());
    manager.turn(rt::Seconds(0));  // each machine's first look at the clock
  }
  VmConfig::Ptr middle() const { return config->vmConfig(names[names.size() / 2]); }

  rt::ActivityManager manager{rt::make<rt::fakes::ManualClock>()};
  std::vector<rt::String> names;
  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
  const Root::Ptr root = rootFactory("bench");
};

// From configured VMs to an agent that has a record and a machine for each and idles.
// "bytes_each": what the agent keeps for one; "bytes_config_each": its configuration.
void load(benchmark::State& state) {
  const int64_t count = state.range(0);
  double bytes = 0;
  double configBytes = 0;
  for (auto _ : state) {
    const size_t empty = rt::fakes::liveBytes();
    World world(count);
    const size_t before = rt::fakes::liveBytes();
    const auto start = std::chrono::steady_clock::now();
    world.start();
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    bytes = static_cast<double>(rt::fakes::liveBytes() - before) / static_cast<double>(count);
    configBytes = static_cast<double>(before - empty) / static_cast<double>(count);
  }
  state.counters["bytes_each"] = bytes;
  state.counters["bytes_config_each"] = configBytes;
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(load)->Arg(10)->Arg(1'000)->Arg(10'000)->UseManualTime()->Unit(benchmark::kMillisecond);

// A change that nobody of the agent hears.
void changeMemory(benchmark::State& state) {
  World world(state.range(0));
  world.start();
  const auto vm = world.middle();
  uint32_t memory = 0;
  for (auto _ : state) vm->memoryIs(++memory);
}
BENCHMARK(changeMemory)->Arg(10)->Arg(10'000);

// A change that the VM's machine hears and finds nothing to do for.
void changeDiskImage(benchmark::State& state) {
  World world(state.range(0));
  world.start();
  const auto vm = world.middle();
  const rt::String images[] = {"/var/lib/images/a.img", "/var/lib/images/b.img"};
  size_t next = 0;
  for (auto _ : state) vm->diskImageIs(images[next++ % 2]);
}
BENCHMARK(changeDiskImage)->Arg(10)->Arg(10'000);

// One VM more and one less, with all that comes and goes with it.
void addAndRemove(benchmark::State& state) {
  World world(state.range(0));
  world.start();
  for (auto _ : state) {
    world.config->vmConfigIs("vm5x");
    world.config->vmConfigDel("vm5x");
  }
}
BENCHMARK(addAndRemove)->Arg(10)->Arg(10'000);

}  // namespace Vm::vmSetBench
