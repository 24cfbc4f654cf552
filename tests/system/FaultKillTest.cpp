// Daemon, stand-in, shim and QEMU are killed, at any moment and in any order: what was not told to
// end goes on, nothing runs twice, and nothing is left over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <random>
#include <utility>

#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::SizeIs;

constexpr unsigned seed = 1;
constexpr int rounds = 50;
void pass(double seconds) {
  waitUntil([] { return false; }, seconds);
}

class KilledDaemon : public testing::Test {
 protected:
  KilledDaemon() {
    ip("link add br0 type bridge");
    ip("link set br0 up");
  }
  ~KilledDaemon() override { ip("link del br0"); }

  void start() { world.start({"--trace", "1,8", "--bridge", "br0"}); }
  void runGuestWithACard() {
    world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
    ASSERT_NO_FATAL_FAILURE(
        world.runGuests({"web1"}, {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100"}));
    ASSERT_TRUE(world.settles({{"web1", true, world.qemu("web1"), 1}}));
  }
  // Does one of the things that an operator, or a cable, does. What it means for the guest is
  // noted.
  void change() {
    switch (random_() % 6) {
      case 0:
        on_ = !on_;
        world.ctl({on_ ? "enable" : "disable", "web1"});
        untold_ = 0;
        break;
      case 1:
        if (on_) world.ctl({"restart", "web1"});
        untold_ = 0;
        break;
      case 2:
        plugged_ = !plugged_;
        if (plugged_)
          world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
        else
          world.ctl({"interface", "unset", "Vlan100"});
        break;
      default:
        break;
    }
  }
  // The guest that runs now is to be the one that ran before, unless it was told otherwise.
  void look(int round) {
    const auto qemus = world.qemus("web1");
    ASSERT_LE(qemus.size(), 1U) << "in round " << round << "\n" << world.log();
    if (untold_ == 0) return;
    ASSERT_EQ(qemus, std::vector{untold_}) << "in round " << round << "\n" << world.log();
  }
  // From here on its QEMU is to stay.
  void settle() {
    if (on_ && world.hasRow("vmProcess", "web1", R"("process":"running")"))
      untold_ = world.qemu("web1");
  }

  FaultWorld world;
  std::mt19937 random_{seed};  // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments every time
  bool on_ = true;
  bool plugged_ = true;
  pid_t untold_ = 0;  // the QEMU that nobody has told to end; 0: none that we know of
};

TEST_F(KilledDaemon, AtAnyMomentLeavesOneGuestAndNothingElse) {
  RecordProperty("seed", static_cast<int>(seed));
  std::printf("the seed is %u\n", seed);
  start();
  world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
  ASSERT_EQ(
      world.addGuest("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100"}).status,
      0);
  for (int round = 0; round < rounds; ++round) {
    pass(static_cast<double>(random_() % 100) / 1000);
    settle();
    change();
    pass(static_cast<double>(random_() % 150) / 1000);
    ASSERT_EQ(world.end(SIGKILL), -SIGKILL);
    ASSERT_NO_FATAL_FAILURE(look(round));
    start();
    ASSERT_NO_FATAL_FAILURE(look(round));
  }
  const Expected web1{"web1", on_, untold_, plugged_ ? 1 : 0};
  EXPECT_TRUE(world.settles({web1}, 2 * FaultWorld::truth));
  EXPECT_TRUE(world.rests({web1}));
  if (!plugged_) world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
  if (!on_) world.ctl({"enable", "web1"});
  EXPECT_TRUE(world.settles({{"web1", true, untold_, 1}}, 2 * FaultWorld::truth));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(world.settles({{"web1", false}}));
}

TEST_F(KilledDaemon, TenTimesLeavesNoDescriptorInShimOrQemu) {
  start();
  world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
  ASSERT_NO_FATAL_FAILURE(
      world.runGuests({"web1"}, {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100"}));
  const pid_t qemu = world.qemu("web1");
  const auto next = [&] {
    world.end(SIGKILL);
    start();
    ASSERT_TRUE(
        waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("process":"running")"); }));
    ASSERT_EQ(world.qemu("web1"), qemu);
  };
  next();  // from here on there is a stand-in
  ASSERT_TRUE(world.settles({{"web1", true, qemu, 1}}));
  const size_t ofShim = FaultWorld::descriptors(world.keeper("web1"));
  const size_t ofQemu = FaultWorld::descriptors(qemu);
  const size_t ofDaemon = FaultWorld::descriptors(world.daemon());
  for (int i = 0; i < 9; ++i) ASSERT_NO_FATAL_FAILURE(next());
  EXPECT_TRUE(world.settles({{"web1", true, qemu, 1}}));
  EXPECT_EQ(FaultWorld::descriptors(world.keeper("web1")), ofShim);
  EXPECT_EQ(FaultWorld::descriptors(qemu), ofQemu);
  EXPECT_EQ(FaultWorld::descriptors(world.daemon()), ofDaemon);
}

// No card of the new daemon's is of the device that its guest has.
TEST_F(KilledDaemon, WhoseVmIsRemovedMeanwhileLeavesNoDeviceOfItsCard) {
  start();
  runGuestWithACard();
  world.end(SIGKILL);
  world.ctl({"remove", "web1", "--force"});
  start();
  EXPECT_TRUE(world.settles({{"web1", false}}, 2 * FaultWorld::truth));
}

TEST_F(KilledDaemon, WhoseGuestIsGivenUpLeavesNoDeviceOfItsCard) {
  start();
  runGuestWithACard();
  world.end(SIGKILL);
  fs::remove_all(world.stateDir);
  start();
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("unknown":")"); }));
  world.ctl({"remove", "web1", "--force"});
  EXPECT_TRUE(world.settles({{"web1", false}}, 2 * FaultWorld::truth));
}

// Who is killed, in order: the stand-in, the shim, QEMU. Each pair has a VM of its own.
enum class Victim { standIn, shim, qemu };
const std::map<std::string, std::pair<Victim, Victim>> pairs{
    {"web1", {Victim::standIn, Victim::shim}}, {"web2", {Victim::standIn, Victim::qemu}},
    {"web3", {Victim::shim, Victim::standIn}}, {"web4", {Victim::shim, Victim::qemu}},
    {"web5", {Victim::qemu, Victim::standIn}}, {"web6", {Victim::qemu, Victim::shim}}};

std::vector<Expected> allOf(const std::map<std::string, std::pair<Victim, Victim>>& of, bool run) {
  std::vector<Expected> all;
  all.reserve(of.size() + 1);
  for (const auto& [vm, pair] : of) all.push_back({vm, run});
  all.push_back({"stays"});
  return all;
}

TEST(KilledPair, InEachOrderIsToldOfLeavesNothingAndCanBeStartedAnew) {
  const std::vector<std::string> options = {"--stop-timeout", "0"};
  FaultWorld world;
  world.start(options);
  std::vector<std::string> vms{"stays"};
  for (const auto& [vm, pair] : pairs) vms.push_back(vm);
  ASSERT_NO_FATAL_FAILURE(world.runGuests(vms));
  world.end(SIGKILL);
  world.start(options);
  ASSERT_TRUE(world.settles(allOf(pairs, true), 2 * FaultWorld::truth));
  const pid_t stays = world.qemu("stays");
  for (const auto& [vm, pair] : pairs) {
    const pid_t keeper = world.keeper(vm);
    auto standIns = world.guests(vm);
    std::erase(standIns, keeper);
    ASSERT_THAT(standIns, SizeIs(1)) << vm;
    const std::map<Victim, pid_t> pids{{Victim::standIn, standIns.front()},
                                       {Victim::shim, keeper},
                                       {Victim::qemu, world.qemu(vm)}};
    FaultWorld::signal(pids.at(pair.first), SIGKILL);
    FaultWorld::signal(pids.at(pair.second), SIGKILL);
  }
  for (const auto& [vm, pair] : pairs) {
    const auto& name = vm;
    EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", name, R"("state":"Stopped")"); }))
        << vm << world.row("vmStatus", vm);
    EXPECT_TRUE(waitUntil([&] { return world.qemus(name).empty() && world.guests(name).empty(); }));
    EXPECT_THAT(world.shownProblem(vm), HasSubstr("signal 9")) << vm << world.ctl({"show", vm});
  }
  EXPECT_EQ(world.qemu("stays"), stays);
  for (const auto& [vm, pair] : pairs) world.ctl({"restart", vm});
  EXPECT_TRUE(world.settles(allOf(pairs, true), 2 * FaultWorld::truth));
  for (const auto& [vm, pair] : pairs) world.ctl({"disable", vm});
  EXPECT_TRUE(world.settles(allOf(pairs, false)));
  EXPECT_EQ(world.qemu("stays"), stays);
}

}  // namespace
}  // namespace host::fakes
