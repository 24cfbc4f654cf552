// What the runtime takes of memory. Benchmarks show what it takes of time.
#include <gtest/gtest.h>

#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/AllocationCounter.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/records/VmConfig.h"

namespace rt::allocationTest {

using fakes::allocations;

class WatchSm final : public StateMachineOf<WatchSm> {
 public:
  WatchSm(Vm::VmConfig::PtrConst vm, const Clock::Ptr& clock)
      : vm_(*this, std::move(vm)), timer_(*this, clock) {}

  void wakeUpIs(Seconds time) { timer_.timeMinIs(time); }
  uint32_t heard() const { return heard_; }

  static constexpr std::string_view typeName = "Test::WatchSm";
  using Attributes = AttributeTable<Attribute<"initialized", &WatchSm::initialized>>;

 private:
  void handleMemory() { ++heard_; }
  void handleEnabled() { ++heard_; }
  void handleTime() { ++heard_; }

  uint32_t heard_ = 0;
  Reactor<WatchSm, const Vm::VmConfig, On<&Vm::VmConfig::memory, &WatchSm::handleMemory>,
          On<&Vm::VmConfig::enabled, &WatchSm::handleEnabled>>
      vm_;
  ClockReactor<WatchSm, &WatchSm::handleTime> timer_;
};

using ItsReactor = Reactor<WatchSm, const Vm::VmConfig, On<&Vm::VmConfig::memory, &WatchSm::heard>>;
static_assert(sizeof(ItsReactor) <= 64);

class Allocation : public testing::Test {
 protected:
  const Vm::VmConfig::Ptr vm_ = make<Vm::VmConfig>("web1");
  const Ptr<fakes::ManualClock> clock_ = make<fakes::ManualClock>();
};

TEST_F(Allocation, CounterSeesAnAllocation) {
  const size_t before = allocations();
  const size_t bytesBefore = fakes::liveBytes();
  {
    const auto made = make<Vm::VmConfig>("db1");
    EXPECT_EQ(allocations() - before, 1U);
    EXPECT_GE(fakes::liveBytes() - bytesBefore, sizeof(Vm::VmConfig));
  }
  EXPECT_EQ(fakes::liveBytes(), bytesBefore);
}

TEST_F(Allocation, CounterSeesAllocationsOfTheLibrary) {
  const size_t before = allocations();
  const auto text = attributeText(*make<Vm::VmConfig>("a name too long for its own place"), "name");
  EXPECT_GE(allocations() - before, 3U);
}

TEST_F(Allocation, ChangeOfAScalarTakesNone) {
  std::vector<Ptr<WatchSm>> machines;
  machines.reserve(100);
  for (int i = 0; i < 100; ++i) machines.push_back(make<WatchSm>(vm_, clock_));
  const size_t before = allocations();
  vm_->memoryIs(256);
  vm_->enabledIs(true);
  EXPECT_EQ(allocations(), before);
  for (const auto& machine : machines) EXPECT_EQ(machine->heard(), 2U);
}

TEST_F(Allocation, AttachingAndDetachingAReactorTakesNone) {
  const auto machine = make<WatchSm>(vm_, clock_);
  const size_t before = allocations();
  {
    ItsReactor reactor(*machine);
    reactor.notifierIs(vm_);
    reactor.notifierIs(nullptr);
    reactor.notifierIs(vm_);
  }
  EXPECT_EQ(allocations(), before);
}

TEST_F(Allocation, WalkOfACollectionTakesNone) {
  for (const char* key : {"nic00", "nic01", "nic02"}) vm_->vnicConfigIs(key);
  const size_t before = allocations();
  int members = 0;
  for (const auto& [key, card] : vm_->vnicConfigs()) members += card ? 1 : 0;
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(members, 3);
}

TEST_F(Allocation, SettingAWakeUpAgainTakesNone) {
  const auto machine = make<WatchSm>(vm_, clock_);
  const auto never = [] { return false; };
  machine->wakeUpIs(clock_->now());
  clock_->pass(never);  // the clock's lists have their places from here on
  const size_t before = allocations();
  machine->wakeUpIs(clock_->now() + Seconds(5));
  clock_->nowIs(clock_->now() + Seconds(5));
  clock_->pass(never);
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(machine->heard(), 2U);
}

}  // namespace rt::allocationTest
