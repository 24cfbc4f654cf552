// What the supervisor costs: all VMs when the daemon starts, and one change among few and many.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "host/fakes/SupervisorWorld.h"
#include "runtime/base/Format.h"

namespace host {
namespace {

using fakes::SupervisorWorld;

// Disabled, with a card of its own.
rt::String doc(int64_t n, int memory) {
  return rt::format(
      R"({"enabled":false,"diskImage":"/images/web.iso","memory":%d,"vncPort":0,"vnicConfig":{)"
      R"("nic00":{"model":"e1000","macAddr":"52:54:00:00:%02x:%02x","intfName":"Vlan1"}}})",
      memory, static_cast<int>(n / 256), static_cast<int>(n % 256));
}

rt::String nameOf(int64_t n) { return "vm" + rt::toText(n); }

std::vector<statedb::Change> snapshot(SupervisorWorld& world, int64_t count) {
  std::vector<statedb::Change> rows;
  rows.reserve(static_cast<size_t>(count));
  for (int64_t n = 0; n < count; ++n) rows.push_back(world.put(nameOf(n), doc(n, 256)));
  return rows;
}

// From the rows to the records that the agent follows.
void load(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<SupervisorWorld>();
    const auto rows = snapshot(*world, state.range(0));
    state.ResumeTiming();
    world->apply(rows);
    world->settle();
    state.PauseTiming();
    world.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(load)->Arg(10000)->Unit(benchmark::kMillisecond);

// A VM's memory is another.
void change(benchmark::State& state) {
  SupervisorWorld world;
  world.apply(snapshot(world, state.range(0)));
  world.settle();
  int memory = 256;
  for (auto _ : state) {
    memory = memory == 256 ? 512 : 256;
    world.apply({world.put("vm7", doc(7, memory))});
    world.settle();
  }
}
BENCHMARK(change)->Arg(10)->Arg(10000);

// As before, while so many other rows are refused: each is looked at again.
void changeAmongRefused(benchmark::State& state) {
  SupervisorWorld world;
  world.apply(snapshot(world, 10));
  std::vector<statedb::Change> refused;
  for (int64_t n = 0; n < state.range(0); ++n)
    refused.push_back(world.put("refused" + rt::toText(n), doc(0, 256)));
  world.apply(refused);
  world.settle();
  int memory = 256;
  for (auto _ : state) {
    memory = memory == 256 ? 512 : 256;
    world.apply({world.put("vm7", doc(7, memory))});
    world.settle();
  }
}
BENCHMARK(changeAmongRefused)->Arg(100)->Arg(10000);

// A VM is switched on, its guest runs, and it is switched off again.
void startAndEnd(benchmark::State& state) {
  SupervisorWorld world;
  world.apply(snapshot(world, state.range(0)));
  world.settle();
  for (auto _ : state) {
    world.rowIs("web1", {.enabled = true});
    world.rowIs("web1", {.enabled = false});
    world.end("web1");
    world.fortune.take();
  }
}
BENCHMARK(startAndEnd)->Arg(10)->Arg(10000);

}  // namespace
}  // namespace host
