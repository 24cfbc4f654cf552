// A backup that is brought back while guests run.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/system/DaemonFixture.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class Restored : public DaemonFixture {
 protected:
  void addRunning(const std::string& name) const {
    world.addVm(name, {"--enabled"});
    ASSERT_TRUE(runs(name)) << world.log();
  }
  bool runs(const std::string& name) const {
    return waitUntil([&] { return world.hasRow("vmStatus", name, R"("state":"Running")"); });
  }

  const std::string backup = "/var/run/backup.db";
};

TEST_F(Restored, BackupTouchesOnlyTheGuestsWhoseVmsDiffer) {
  world.start();
  addRunning("web1");
  addRunning("web2");
  world.ctl({"backup", backup});
  const std::vector<pid_t> web1 = world.guests("web1");
  world.ctl({"remove", "web2", "--force", "--wait"});
  EXPECT_THAT(world.ctl({"restore", backup, "--dry-run"}), HasSubstr("add web2\n"));
  EXPECT_TRUE(world.row("vmConfig", "web2").empty());
  world.ctl({"restore", backup});
  EXPECT_TRUE(runs("web2")) << world.log();
  EXPECT_EQ(world.guests("web1"), web1);
}

TEST_F(Restored, BackupBringsTheVmsIntoANewDatabase) {
  world.start();
  addRunning("web1");
  world.ctl({"interface", "set", "Vlan100", "--device", "eth9"});
  world.ctl({"backup", backup});
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_EQ(world.end(SIGTERM), 0);
  for (const char* const ending : {"", "-wal", "-shm"})
    fs::remove(world.stateDir + "/config.db" + ending);
  world.start();
  world.ctl({"restore", backup});
  EXPECT_TRUE(runs("web1")) << world.log();
  EXPECT_THAT(world.row("interface", "Vlan100"), HasSubstr("eth9"));
}

// It can be put in the place of the database, too.
TEST_F(Restored, BackupIsADatabase) {
  world.start();
  world.addVm("web1");
  world.ctl({"backup", backup});
  EXPECT_EQ(world.end(SIGTERM), 0);
  for (const char* const ending : {"", "-wal", "-shm"})
    fs::remove(world.stateDir + "/config.db" + ending);
  fs::copy_file(backup, world.stateDir + "/config.db");
  world.start();
  EXPECT_THAT(world.ctl({"list", "-o", "name"}), HasSubstr("web1"));
}

}  // namespace
}  // namespace host::fakes
