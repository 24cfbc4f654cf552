// What one interface's change costs with a thousand VMs of two cards each.
//
// The change is told to every VM, which looks at each of its cards. Time is per card.
#include <benchmark/benchmark.h>

#include <mutex>
#include <string>

#include "Vm/VmAgent/fakes/AgentWorld.h"
#include "runtime/base/Check.h"

namespace Vm {

namespace {

constexpr int vms = 1000;
constexpr int cards = 2 * vms;

// The VMs are configured, and their cards registered, without any process: what matters here is the
// tables that a change is compared with.
class Fleet : public fakes::AgentWorld {
 public:
  Fleet(const char* intfName, Vnic::LinkStatus linkStatus) {
    rt::vmTrace().levelsIs(rt::TraceHandle::defaultLevels);
    for (int i = 0; i < vms; ++i) addVm("vm" + std::to_string(i));
    start();
    for (const auto& [name, vm] : vmSm()->vmConfigSms())
      for (const char* const index : {"0", "1"})
        vm->vnicIs(rt::String("net") + index, rt::String("hostnet") + index,
                   rt::EthAddr({0x52, 0x54, 0, 0, 0, 1}), intfName, Vnic::noFd)
            ->statusIs(linkStatus);
    rt::check(vmSm()->vmConfigSms().size() == vms, "a VM is missing");
  }
  // The interface changes: another ifindex.
  void change() {
    const std::lock_guard held(rt::activityLock());
    deviceIntfStatusDir->intfStatusAndDeviceNameIs(rt::IntfId("Vlan100"), {"Vlan100", ++ifIndex_});
  }

 private:
  uint32_t ifIndex_ = 1;
};

void run(benchmark::State& state, const char* intfName, Vnic::LinkStatus status) {
  Fleet fleet(intfName, status);
  for (auto _ : state) fleet.change();
  state.counters["perCard"] = benchmark::Counter(
      cards, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void InterfaceChangeOfNoCard(benchmark::State& state) { run(state, "Vlan200", Vnic::linkDown); }
void InterfaceChangeOfCardsThatAreUp(benchmark::State& state) {
  run(state, "Vlan100", Vnic::linkUp);
}
BENCHMARK(InterfaceChangeOfNoCard);
BENCHMARK(InterfaceChangeOfCardsThatAreUp);

}  // namespace

}  // namespace Vm
