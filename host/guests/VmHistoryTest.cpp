// Whatever happened before: when the trouble is over, all is as it is asked for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::Row;

// Operators, guests and an agent that do as dice say.
class VmHistoryTest : public testing::TestWithParam<unsigned> {
 protected:
  size_t dice(size_t sides) { return std::uniform_int_distribution<size_t>(0, sides - 1)(random_); }
  const char* anyVm() { return names[dice(std::size(names))]; }

  void operatorActs() {
    const char* const vm = anyVm();
    const Row row{.enabled = dice(3) > 0,
                  .diskImage = dice(2) == 0 ? "/images/a" : "/images/b",
                  .memory = static_cast<int>(dice(4) * 128),  // 0 is refused
                  .vncPort = dice(2) == 0 ? 0 : 5900};        // one of them may have it
    switch (dice(7)) {
      case 5:
        return world.apply({fakes::SupervisorWorld::found(fakes::SupervisorWorld::del(vm))}, "h2");
      case 6:
        return world.apply({fakes::SupervisorWorld::found(world.putNew(vm, row.doc()))}, "h3");
      case 0:
        return world.apply({world.putNew(vm, row.doc())});
      case 1:
        return world.apply({fakes::SupervisorWorld::del(vm), world.putNew(anyVm(), row.doc())});
      case 2:
        return world.supervisor->restartIs(vm, ++restart_);
      default:
        return world.apply({world.put(vm, row.doc())});
    }
  }
  void worldActs() {
    const auto toggle = [](std::set<rt::String>& set, const char* name) {
      if (set.erase(name) == 0) set.insert(name);
    };
    switch (dice(7)) {
      case 0:
        return toggle(world.fortune.startFails, anyVm());
      case 1:
        return toggle(world.fortune.throws, anyVm());
      case 2:
        return toggle(world.fortune.mountThrows, anyVm());
      case 3:
        return toggle(world.images.missing, dice(2) == 0 ? "/images/a" : "/images/b");
      case 4:
        toggle(world.images.unseen, dice(2) == 0 ? "/images/a" : "/images/b");
        return world.supervisor->imageIsKnown(anyVm());
      case 5:
        if (const auto& all = world.fortune.processes; !all.empty())
          world.exits(all[dice(all.size())]->vm());
        return;
      default:
        return world.clock->nowIs(world.clock->now() + rt::Seconds(0.5 * double(dice(8))));
    }
  }
  void history() {
    for (int i = 0; i < 60; ++i) {
      if (dice(2) == 0)
        operatorActs();
      else
        worldActs();
      for (size_t turns = dice(4); turns > 0; --turns) {
        world.manager.turn(rt::Seconds(0));
        world.supervisor->pass();
      }
    }
  }
  // No more trouble, and time for all that was begun.
  void peace() {
    world.fortune.startFails.clear();
    world.fortune.throws.clear();
    world.fortune.mountThrows.clear();
    world.images.missing.clear();
    world.images.unseen.clear();
    for (const char* const vm : names) world.supervisor->imageIsKnown(vm);
    world.advance(130);
    const auto isKilled = [](const auto& process) { return process->isKilled(); };
    auto& all = world.fortune.processes;
    for (auto at = all.begin(); (at = std::find_if(all.begin(), all.end(), isKilled)) != all.end();)
      world.end((*at)->vm());
    world.advance(130);
  }

  bool runs(const rt::String& vm) const {
    const auto& all = world.fortune.processes;
    return std::any_of(all.begin(), all.end(),
                       [&](const auto& process) { return process->vm() == vm; });
  }
  // Its row is lost, or came back and is not understood.
  void expectAsItWas(const rt::String& vm, const VmRow& row) {
    EXPECT_TRUE(!row.isLost || runs(vm)) << "nothing is left to go on";
    EXPECT_EQ(row.isLost, !world.hostStatus->vmProcess(vm)->unknown().empty());
    EXPECT_EQ(world.problem(vm).find("config: "), 0U) << world.problem(vm);
  }

  void expectAsAskedFor(const rt::String& vm) {
    const VmRow* const row = world.rows.row(vm);
    const auto record = world.config->vmConfig(vm);
    const auto wanted = row ? row->valid : nullptr;
    if (row && record && !wanted) return expectAsItWas(vm, *row);
    ASSERT_EQ(record != nullptr, wanted != nullptr);
    EXPECT_TRUE((row && !row->isLost) || !world.hostStatus->vmProblem(vm)) << "a problem of no VM";
    if (!wanted) {
      EXPECT_THAT(world.process(vm), testing::AnyOf("", row ? "none 0" : ""));
      return;
    }
    EXPECT_EQ(record->enabled(), wanted->enabled());
    EXPECT_EQ(world.status->vmStatus(vm)->enabled(), wanted->enabled());
    EXPECT_EQ(record->memory(), wanted->memory());
    EXPECT_EQ(record->diskImage(), wanted->diskImage());
    EXPECT_EQ(record->vncPort(), wanted->vncPort());
    const auto process = world.agent->agent()->vmSm()->vmConfigSm(vm)->qemuChildProcess();
    if (process)
      EXPECT_EQ(world.process(vm), "running " + std::to_string(process->pid()));
    else
      EXPECT_THAT(world.process(vm), testing::AnyOf("", "none 0"));
    EXPECT_TRUE(wanted->enabled() || !process);
  }

  static constexpr const char* names[] = {"a", "b", "c"};
  fakes::SupervisorWorld world;

 private:
  std::mt19937 random_{GetParam()};
  uint64_t restart_ = 0;
};

TEST_P(VmHistoryTest, EndsAsItIsAskedFor) {
  history();
  peace();
  for (const char* vm : names) {
    SCOPED_TRACE(vm);
    expectAsAskedFor(vm);
  }
  EXPECT_FALSE(world.fortune.twoOfOneVm);
  EXPECT_EQ(world.clock->nextWakeUpTime(), rt::Seconds::infinity());
}

INSTANTIATE_TEST_SUITE_P(Seeds, VmHistoryTest, testing::Range(0U, 200U));

}  // namespace
}  // namespace host
