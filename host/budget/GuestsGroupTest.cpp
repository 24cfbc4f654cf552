// Where the guests' control group is made.
#include <gtest/gtest.h>

#include "host/budget/GuestsGroup.h"
#include "host/fakes/FakeMachineFiles.h"

namespace host {
namespace {

class GuestsGroupTest : public testing::Test {
 protected:
  GuestsGroup make() { return makeGuestsGroup(files, share, 4711); }

  fakes::FakeMachineFiles files;
  const GuestsShare share{768, model::Processors(100)};
};

const char* const slice = "/sys/fs/cgroup/vmagent.slice";

TEST_F(GuestsGroupTest, OfAServiceIsInTheUnitThatIsTheGuests) {
  files.files["/proc/self/cgroup"] = "0::/vmagent.slice/vmagentd.service\n";
  files.files["/sys/fs/cgroup/cgroup.subtree_control"] = "cpu io memory pids\n";
  files.makeDirectory(slice);
  files.files[std::string(slice) + "/cgroup.subtree_control"] = "cpu io memory pids\n";
  const GuestsGroup group = make();
  EXPECT_EQ(group.trouble, "");
  EXPECT_EQ(group.path, std::string(slice) + "/vmagent-guests.service/guests");
  EXPECT_EQ(files.at(group.path.str() + "/memory.max"), "805306368");
  EXPECT_EQ(files.at(group.path.str() + "/cpu.max"), "20000 20000");
  EXPECT_EQ(files.at(std::string(slice) + "/vmagent-guests.service/cpu.weight"), "50");
  EXPECT_EQ(files.at(group.path.str() + "/cgroup.subtree_control"), "memory cpu io pids ");
  EXPECT_FALSE(files.hasDirectory("/sys/fs/cgroup/vmagent"));
  for (const std::string& write : files.writes)
    EXPECT_TRUE(write.starts_with(std::string(slice) + "/vmagent-guests.service/")) << write;
}

TEST_F(GuestsGroupTest, WithoutASystemdIsBesideTheDaemonsOwn) {
  const GuestsGroup group = make();
  EXPECT_EQ(group.trouble, "");
  EXPECT_EQ(group.path, "/sys/fs/cgroup/vmagent/guests");
  EXPECT_EQ(files.at("/sys/fs/cgroup/vmagent/daemon/cgroup.procs"), "4711");
  EXPECT_EQ(files.at("/sys/fs/cgroup/vmagent/daemon/cpu.weight"), "1000");
  EXPECT_EQ(files.at("/sys/fs/cgroup/vmagent/daemon/memory.min"), "67108864");
  EXPECT_EQ(files.at("/sys/fs/cgroup/vmagent/guests/cpu.weight"), "50");
}

TEST_F(GuestsGroupTest, IsFoundAgainByADaemonThatWasStartedFromItsOwn) {
  (void)make();
  files.files["/proc/self/cgroup"] = "0::/vmagent/daemon\n";
  EXPECT_EQ(make().path, "/sys/fs/cgroup/vmagent/guests");
}

TEST_F(GuestsGroupTest, IsNoneWhereAnotherDividesTheMachine) {
  files.files["/proc/1/comm"] = "systemd\n";
  files.files["/proc/self/cgroup"] = "0::/user.slice/session-1.scope\n";
  EXPECT_EQ(make().trouble, "vmagentd is not started by its unit, and systemd divides the machine");
  files.files["/proc/1/comm"] = "init\n";
  EXPECT_EQ(make().trouble,
            "vmagentd is in the control group /user.slice/session-1.scope, which is another's");
  EXPECT_TRUE(files.writes.empty());
  EXPECT_EQ(make().path, "");
}

TEST_F(GuestsGroupTest, IsNoneWhereTheKernelBoundsNoMemory) {
  files.files["/sys/fs/cgroup/cgroup.controllers"] = "hugetlb\n";
  EXPECT_EQ(make().trouble, "the machine's control groups of version 2 do not bound memory");
  files.files.erase("/sys/fs/cgroup/cgroup.controllers");
  EXPECT_EQ(make().trouble, "the machine has no control groups of version 2");
  EXPECT_TRUE(files.writes.empty());
}

TEST_F(GuestsGroupTest, SaysWhatCannotBeMade) {
  files.errors["/sys/fs/cgroup/vmagent/guests"] = EROFS;
  const GuestsGroup group = make();
  EXPECT_EQ(group.path, "");
  EXPECT_EQ(group.trouble,
            "/sys/fs/cgroup/vmagent/guests could not be made: Read-only file system");
}

TEST_F(GuestsGroupTest, IsNoneWhenItBoundsNothing) {
  files.errors["/sys/fs/cgroup/vmagent/guests/cgroup.subtree_control"] = EBUSY;
  EXPECT_EQ(make().trouble, "/sys/fs/cgroup/vmagent/guests cannot bound the memory of guests");
}

TEST_F(GuestsGroupTest, BoundsAgainWhatWasUnbound) {
  const std::string path = make().path.str();
  files.files[path + "/cgroup.subtree_control"] = "\n";
  files.files[path + "/memory.max"] = "max\n";
  EXPECT_EQ(renewGuestsGroup(files, path, share), "");
  EXPECT_EQ(files.at(path + "/memory.max"), "805306368");
  EXPECT_EQ(files.at(path + "/cgroup.subtree_control"), "memory cpu io pids ");
  files.writes.clear();
  EXPECT_EQ(renewGuestsGroup(files, path, share), "");
  EXPECT_TRUE(files.writes.empty());
}

}  // namespace
}  // namespace host
