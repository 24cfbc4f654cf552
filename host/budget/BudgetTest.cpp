// Who is given what of the machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/budget/Budget.h"
#include "host/fakes/FakeMachineFiles.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* guests = "/sys/fs/cgroup/vmagent/guests";

// A guest of 256 MiB needs 358.
class BudgetTest : public testing::Test {
 protected:
  BudgetTest() { (void)makeGuestsGroup(files, share, 1); }

  Budget& budget() {
    if (!budget_)
      budget_ = std::make_unique<Budget>(
          Budget::Tools{.files = files,
                        .rows = rows,
                        .watch = [this](const rt::String& path) { watched.push_back(path.str()); },
                        .again = [this](const rt::String& vm) { again.push_back(vm.str()); },
                        .isKept = [this](const rt::String&) { return isKept; }},
          Budget::Settings{.group = guests, .share = share, .reserve = 100}, status);
    return *budget_;
  }
  std::string reserve(const char* vm, uint32_t memory = 256) {
    const auto config = rt::make<Vm::VmConfig>(vm);
    config->memoryIs(memory);
    return budget().reserve(*config).str();
  }
  // Its QEMU is born.
  void start(const char* vm) {
    ASSERT_EQ(reserve(vm), "");
    files.populate(budget().groupOf(vm).str(), true);
  }
  void limit(const char* vm, const char* doc) {
    rows.rowIs("vmLimits", vm, statedb::Record{"vmLimits", vm, doc, 1, 1});
    budget().limitsAre(vm);
  }
  std::string in(const char* vm, const char* file) {
    return files.at(budget().groupOf(vm).str() + "/" + file);
  }

  fakes::FakeMachineFiles files;
  const GuestsShare share{1000, model::Processors(100)};
  OwnRows rows{model::MachineLimits{.memory = 8192}};
  const model::DaemonStatus::Ptr status = rt::make<model::DaemonStatus>("vmagentd");
  bool isKept = false;
  std::vector<std::string> watched;
  std::vector<std::string> again;
  std::unique_ptr<Budget> budget_;
};

TEST_F(BudgetTest, MakesAGroupWithItsBoundsBeforeAGuestIsInIt) {
  EXPECT_EQ(budget().groupOf("web1"), "");
  EXPECT_EQ(reserve("web1"), "");
  EXPECT_EQ(budget().groupOf("web1"), std::string(guests) + "/vm-web1.358");
  EXPECT_EQ(in("web1", "memory.max"), "375390208");
  EXPECT_EQ(in("web1", "memory.swap.max"), "0");
  EXPECT_EQ(in("web1", "memory.oom.group"), "1");
  EXPECT_EQ(in("web1", "pids.max"), "512");
  EXPECT_EQ(in("web1", "cpu.weight"), "100");
  EXPECT_EQ(status->memoryGiven(), 358U);
}

TEST_F(BudgetTest, StartsNobodyBeyondWhatAllMayHave) {
  start("web1");
  start("web2");
  EXPECT_EQ(reserve("web3"), "memory: 358 MiB would make 1,074 of all guests; they may have 1,000");
  EXPECT_EQ(budget().groupOf("web3"), "");
  EXPECT_EQ(status->memoryGiven(), 716U);
}

TEST_F(BudgetTest, StartsNobodyWhoWouldHaveTheMachinesReserve) {
  files.files["/proc/meminfo"] = "MemAvailable: 460800 kB\n";  // 450 MiB
  EXPECT_EQ(reserve("web1"), "memory: 358 MiB would leave 92 MiB; the reserve is 100");
}

TEST_F(BudgetTest, CountsWhatGuestsHaveNotTouchedYet) {
  files.files["/proc/meminfo"] = "MemAvailable: 819200 kB\n";  // 800 MiB
  start("web1");
  EXPECT_THAT(reserve("web2"), HasSubstr("358 MiB would leave 84 MiB"));
  files.files[std::string(guests) + "/memory.current"] = "375390208\n";
  EXPECT_EQ(reserve("web2"), "");
}

TEST_F(BudgetTest, TriesThoseAgainThatWaitWhenAGuestHasEnded) {
  start("web1");
  start("web2");
  EXPECT_NE(reserve("web3"), "");
  files.populate(budget().groupOf("web1").str(), false);
  const std::string before = budget().groupOf("web1").str();
  budget().ended("web1");
  EXPECT_THAT(again, ElementsAre("web3"));
  EXPECT_FALSE(files.hasDirectory(before));
  EXPECT_EQ(status->memoryGiven(), 358U);
  EXPECT_EQ(reserve("web3"), "");
  again.clear();
  files.populate(budget().groupOf("web2").str(), false);
  budget().ended("web2");
  EXPECT_THAT(again, IsEmpty());
}

TEST_F(BudgetTest, GivesNothingAwayThatADyingQemuStillHas) {
  start("web1");
  start("web2");
  EXPECT_NE(reserve("web3"), "");
  const std::string group = budget().groupOf("web1").str();
  budget().ended("web1");
  EXPECT_THAT(watched, ElementsAre(group));
  EXPECT_THAT(again, IsEmpty());
  EXPECT_NE(reserve("web3"), "");
  files.populate(group, false);
  budget().look();
  EXPECT_THAT(again, ElementsAre("web3"));
  EXPECT_FALSE(files.hasDirectory(group));
}

TEST_F(BudgetTest, GivesNothingAwayOfAGroupThatTheKernelDoesNotRemove) {
  start("web1");
  start("web2");
  EXPECT_NE(reserve("web3"), "");
  const std::string group = budget().groupOf("web1").str();
  files.populate(group, false);
  files.held.insert(group);
  budget().ended("web1");
  EXPECT_THAT(again, IsEmpty());
  EXPECT_EQ(status->memoryGiven(), 716U);
  budget_.reset();
  (void)budget();
  EXPECT_EQ(status->memoryGiven(), 716U) << "by the next daemon, too";
  files.held.clear();
  budget().look();
  EXPECT_EQ(status->memoryGiven(), 358U);
}

TEST_F(BudgetTest, KeepsTheGroupOfAStartWhoseGuestBeforeLeavesIt) {
  start("web1");
  budget().pass(rt::Seconds(60));
  budget().ended("web1");
  EXPECT_EQ(reserve("web1"), "");
  const std::string group = budget().groupOf("web1").str();
  files.populate(group, false);
  budget().look();
  EXPECT_TRUE(files.hasDirectory(group));
  EXPECT_EQ(status->memoryGiven(), 358U);
}

TEST_F(BudgetTest, EndsWhatAQemuHasLeftThatNobodyKeeps) {
  start("web1");
  const std::string group = budget().groupOf("web1").str();
  isKept = true;
  budget().ended("web1");
  EXPECT_EQ(files.at(group + "/cgroup.kill"), "");
  isKept = false;
  budget().ended("web1");
  EXPECT_EQ(files.at(group + "/cgroup.kill"), "1");
}

// Its shim may keep it for the new one, which else would find none.
TEST_F(BudgetTest, LeavesAGuestWhereItIsThatAStartMayFind) {
  start("web1");
  const std::string group = budget().groupOf("web1").str();
  isKept = true;
  budget().ended("web1");
  EXPECT_EQ(reserve("web1", 300), "");
  EXPECT_EQ(budget().groupOf("web1"), group);
  EXPECT_EQ(in("web1", "memory.max"), "421527552");
  EXPECT_EQ(status->memoryGiven(), 402U);
  budget().look();
  EXPECT_TRUE(files.hasDirectory(group));
  EXPECT_THAT(reserve("web1", 2000), HasSubstr("they may have 1,000"));
  budget_.reset();
  EXPECT_EQ(status->memoryGiven(), 402U);
  (void)budget();
  EXPECT_EQ(status->memoryGiven(), 402U) << "more than its name says";
}

TEST_F(BudgetTest, ForgetsWhoIsNotToBeStartedNow) {
  start("web1");
  start("web2");
  EXPECT_NE(reserve("web3"), "");
  budget().release("web3");
  files.populate(budget().groupOf("web1").str(), false);
  budget().ended("web1");
  EXPECT_THAT(again, IsEmpty());
}

TEST_F(BudgetTest, BoundsAGuestThatRunsAsItsRowSaysNow) {
  start("web1");
  limit("web1", R"({"cpuWeight":50,"cpuMax":"0.5","memoryReserve":42,"ioWeight":7})");
  EXPECT_EQ(in("web1", "cpu.weight"), "50");
  EXPECT_EQ(in("web1", "cpu.max"), "10000 20000");
  EXPECT_EQ(in("web1", "io.weight"), "default 7");
  EXPECT_EQ(in("web1", "memory.max"), "419430400");
  EXPECT_EQ(status->memoryGiven(), 400U);
}

TEST_F(BudgetTest, EndsNoGuestByTakingWhatItHas) {
  start("web1");
  limit("web1", R"({"memoryReserve":42})");
  files.files[budget().groupOf("web1").str() + "/memory.current"] = "408944640\n";  // 390 MiB
  limit("web1", "{}");
  EXPECT_EQ(in("web1", "memory.max"), "419430400");
  files.files[budget().groupOf("web1").str() + "/memory.current"] = "104857600\n";
  budget().pass(rt::Seconds(100));
  EXPECT_EQ(in("web1", "memory.max"), "375390208");
}

TEST_F(BudgetTest, BoundsAgainOnceAMinuteWhatWasUnbound) {
  start("web1");
  budget().pass(rt::Seconds(1000));
  files.files[budget().groupOf("web1").str() + "/memory.max"] = "max\n";
  files.files[std::string(guests) + "/memory.max"] = "max\n";
  budget().pass(rt::Seconds(1059));
  EXPECT_EQ(in("web1", "memory.max"), "max");
  budget().pass(rt::Seconds(1060));
  EXPECT_EQ(in("web1", "memory.max"), "375390208");
  EXPECT_EQ(files.at(std::string(guests) + "/memory.max"), "1048576000");
}

TEST_F(BudgetTest, SaysThatNothingBoundsGuestsAnyMore) {
  files.files[std::string(guests) + "/cgroup.subtree_control"] = "\n";
  files.errors[std::string(guests) + "/cgroup.subtree_control"] = EACCES;
  budget().pass(rt::Seconds(100));
  EXPECT_EQ(status->guestsTrouble(), std::string(guests) + " cannot bound the memory of guests");
}

TEST_F(BudgetTest, FindsTheGuestsOfAnEarlierDaemonAgain) {
  const std::string group = std::string(guests) + "/vm-web1.700";
  files.makeDirectory(group);
  files.populate(group, true);
  files.makeDirectory(std::string(guests) + "/vm-web2.300");
  files.makeDirectory(std::string(guests) + "/another");
  EXPECT_EQ(budget().groupOf("web1"), group);
  EXPECT_EQ(status->memoryGiven(), 700U);
  EXPECT_FALSE(files.hasDirectory(std::string(guests) + "/vm-web2.300"));
  EXPECT_TRUE(files.hasDirectory(std::string(guests) + "/another"));
  EXPECT_NE(reserve("web3"), "");
  limit("web1", R"({"memoryReserve":50})");
  EXPECT_EQ(files.at(group + "/memory.max"), "786432000");
}

// Nobody tells of the end of one that is in no configuration.
TEST_F(BudgetTest, NoticesThatAnEarlierGuestHasEnded) {
  const std::string group = std::string(guests) + "/vm-web1.700";
  files.makeDirectory(group);
  files.populate(group, true);
  budget().pass(rt::Seconds(0));
  files.populate(group, false);
  budget().pass(rt::Seconds(60));
  EXPECT_FALSE(files.hasDirectory(group));
  EXPECT_EQ(status->memoryGiven(), 0U);
}

TEST_F(BudgetTest, LeavesAGroupAloneWhoseGuestIsAboutToBeBorn) {
  EXPECT_EQ(reserve("web1"), "");
  budget().pass(rt::Seconds(60));
  EXPECT_TRUE(files.hasDirectory(budget().groupOf("web1").str()));
}

TEST_F(BudgetTest, StartsNobodyWhomNothingWouldBound) {
  const std::string group = std::string(guests) + "/vm-web1.358";
  files.errors[group] = EROFS;
  EXPECT_EQ(reserve("web1"),
            "its control group " + group + " could not be made: Read-only file system");
  files.errors.clear();
  files.errors[group + "/memory.max"] = EACCES;
  EXPECT_THAT(reserve("web1"), HasSubstr("could not be made"));
  EXPECT_FALSE(files.hasDirectory(group));
  EXPECT_EQ(status->memoryGiven(), 0U);
}

TEST_F(BudgetTest, TriesAStartAgainWhoseLimitsAreOthers) {
  start("web1");
  EXPECT_NE(reserve("web2", 700), "");
  limit("web2", "{}");
  EXPECT_THAT(again, ElementsAre("web2"));
}

}  // namespace
}  // namespace host
