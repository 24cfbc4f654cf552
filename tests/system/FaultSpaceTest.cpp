// No room, no right to write, no descriptors, and a database that is none: guests go on, the daemon
// says what is wrong, and all is well once it is mended.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/base/Descriptor.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

// A small file system of its own at that path, for a while.
class SmallDisk {
 public:
  explicit SmallDisk(std::string path) : path_(std::move(path)) {
    fs::create_directories(path_);
    EXPECT_EQ(mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=2m,mode=2770"), 0);
  }
  SmallDisk(const SmallDisk&) = delete;
  ~SmallDisk() {
    readOnlyIs(false);
    empty();
    umount2(path_.c_str(), MNT_DETACH);
  }

  void fill() const {
    const rt::Descriptor file(open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string block(4096, 'x');
    while (write(file.number(), block.data(), block.size()) > 0) {
    }
  }
  void empty() const { fs::remove(filler()); }
  void readOnlyIs(bool readOnly) const {
    const unsigned long flag = readOnly ? MS_RDONLY : 0;
    EXPECT_EQ(mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | flag, nullptr), 0)
        << std::strerror(errno);
  }

 private:
  std::string filler() const { return path_ + "/filler"; }

  const std::string path_;
};

class NoRoom : public testing::Test {
 protected:
  bool isLogged(const std::string& text) const {
    return waitUntil([&] { return world.log().find(text) != std::string::npos; },
                     FaultWorld::truth);
  }
  // A daemon starts, cannot, and says why in one line; the guest goes on.
  void expectNoDaemon(const std::string& why, pid_t guest, int status = 1) {
    const Ended ended = run({VMAGENTD, "--state-dir", world.stateDir, "--run-dir", world.runDir,
                             "--shim", VMAGENT_SHIM, "--accel", "tcg"});
    EXPECT_EQ(ended.status, status);
    EXPECT_EQ(ended.err, "vmagentd: " + why + "\n");
    EXPECT_EQ(world.qemu("web1"), guest);
  }
  void expectTakenUp(pid_t guest) {
    world.start();
    EXPECT_TRUE(
        waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("process":"running")"); },
                  FaultWorld::truth));
    EXPECT_EQ(world.qemu("web1"), guest);
  }

  FaultWorld world;
};

TEST_F(NoRoom, InTheRunDirectoryEndsNoGuestAndIsToldOfAndPasses) {
  const SmallDisk disk(world.runDir);
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1", "web2"}));
  const pid_t web1 = world.qemu("web1");
  const std::string full = "no space left on the disk of " + world.runDir + "/status.db";
  // There is some room left in the database's own files.
  int written = 0;
  EXPECT_TRUE(waitUntil(
      [&] {
        disk.fill();
        const std::string device = "probe" + std::to_string(++written);
        world.write("interface", device, R"({"deviceName":")" + device + "\"}");
        return world.log().find(full) != std::string::npos;
      },
      FaultWorld::truth))
      << world.log();
  FaultWorld::signal(world.qemu("web2"), SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return world.guests("web2").empty(); }));
  EXPECT_EQ(world.qemu("web1"), web1);
  disk.empty();
  EXPECT_TRUE(isLogged("status: written again"));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web2", R"("Stopped")"); },
                        FaultWorld::truth));
  // Another daemon finds it full at its start: says so, and goes on or ends.
  world.end(SIGKILL);
  disk.fill();
  world.launch({"--shim", VMAGENT_SHIM, "--accel", "tcg"});
  EXPECT_TRUE(isLogged(full)) << world.log();
  EXPECT_EQ(world.qemu("web1"), web1);
  world.end(SIGKILL);
  disk.empty();
  world.start();
  EXPECT_TRUE(world.settles({{"web1", true, web1}, {"web2"}}, 2 * FaultWorld::truth));
}

TEST_F(NoRoom, ForTheConfigurationRefusesWhatIsWrittenAndLosesNothing) {
  const SmallDisk disk(world.stateDir);
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const pid_t web1 = world.qemu("web1");
  disk.fill();
  // There is some room left in the database's own files.
  Ended refused;
  int committed = 32;
  for (int memory = 33; memory < 2000 && refused.status <= 0; ++memory) {
    refused = world.vmctl({"set", "web1", "memory=" + std::to_string(memory)});
    if (refused.status == 0) committed = memory;
  }
  EXPECT_EQ(refused.status, 6);
  EXPECT_EQ(refused.err, "vmctl: no space left on the disk of " + world.stateDir +
                             "/config.db: nothing was written; free some and try again\n");
  const std::string memory = R"("memory":)" + std::to_string(committed);
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(memory));
  EXPECT_EQ(world.qemu("web1"), web1);
  world.end(SIGKILL);
  disk.empty();
  expectTakenUp(web1);
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(memory));
  world.ctl({"set", "web1", "memory=32"});
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(R"("memory":32)"));
}

TEST_F(NoRoom, BecauseTheConfigurationIsReadOnlyIsSaidAndPasses) {
  const SmallDisk disk(world.stateDir);
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const pid_t web1 = world.qemu("web1");
  world.end(SIGTERM);
  disk.readOnlyIs(true);
  const std::string why = "the file system of " + world.stateDir +
                          "/config.db is read-only: mount it writable, or name another directory";
  const Ended refused = world.vmctl({"set", "web1", "memory=48"});
  EXPECT_EQ(refused.status, 6);
  EXPECT_EQ(refused.err, "vmctl: " + why + "\n");
  expectNoDaemon(why, web1);
  disk.readOnlyIs(false);
  expectTakenUp(web1);
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(R"("memory":32)"));
}

TEST_F(NoRoom, ForRubbishInThePlaceOfTheConfigurationUntilItIsPutBack) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const pid_t web1 = world.qemu("web1");
  const std::string database = world.stateDir + "/config.db";
  const std::string backup = "/var/run/backup.db";
  world.end(SIGTERM);
  fs::copy_file(database, backup, fs::copy_options::overwrite_existing);
  world.start();
  // Overwritten under the daemon, which goes on; nobody else may write.
  std::fstream(database, std::ios::in | std::ios::out) << std::string(8192, 'z');
  fs::resize_file(database + "-wal", 0);
  const std::string why = database + " is damaged or no database (file is not a database): ";
  const Ended refused = world.vmctl({"set", "web1", "memory=48"});
  EXPECT_EQ(refused.status, 6);
  EXPECT_THAT(refused.err, HasSubstr(why + "stop vmagentd, move the file away and restore"));
  EXPECT_EQ(world.qemu("web1"), web1);
  world.end(SIGKILL);
  expectNoDaemon(refused.err.substr(7, refused.err.size() - 8), web1, 6);
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(database + suffix);
  fs::copy_file(backup, database);
  expectTakenUp(web1);
}

// The open files that a process may have, for a while.
class FewDescriptors {
 public:
  FewDescriptors(pid_t process, rlim_t most) : process_(process) {
    EXPECT_EQ(prlimit(process_, RLIMIT_NOFILE, nullptr, &before_), 0);
    const rlimit few{most, before_.rlim_max};
    EXPECT_EQ(prlimit(process_, RLIMIT_NOFILE, &few, nullptr), 0);
  }
  FewDescriptors(const FewDescriptors&) = delete;
  ~FewDescriptors() { (void)prlimit(process_, RLIMIT_NOFILE, &before_, nullptr); }

 private:
  const pid_t process_;
  rlimit before_{};
};

TEST_F(NoRoom, ForMoreDescriptorsFailsTheNextStartOnlyAndPasses) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const pid_t web1 = world.qemu("web1");
  {
    const FewDescriptors few(world.daemon(), 0);
    ASSERT_EQ(world.addGuest("web2").status, 0);
    EXPECT_TRUE(waitUntil(
        [&] { return world.shownProblem("web2").find("Too many open") != std::string::npos; },
        FaultWorld::truth))
        << world.ctl({"show", "web2"}) << world.log();
    EXPECT_EQ(world.qemu("web2"), 0);
    EXPECT_EQ(world.qemu("web1"), web1);
  }
  EXPECT_TRUE(world.settles({{"web1", true, web1}, {"web2"}}, 2 * FaultWorld::truth));
}

// The socket at which the agent is to look, and the two ends of the guest's pipe.
TEST_F(NoRoom, ForADescriptorInTheMidstOfAStartLeavesNothingOfItAndPasses) {
  world.start();
  const size_t before = FaultWorld::descriptors(world.daemon());
  for (size_t more = 0; more < 3; ++more) {
    {
      const FewDescriptors few(world.daemon(), before + more);
      ASSERT_EQ(world.addGuest("web1").status, 0);
      EXPECT_TRUE(waitUntil([&] { return !world.shownProblem("web1").empty(); }, FaultWorld::truth))
          << more << world.log();
    }
    EXPECT_TRUE(world.settles({{"web1"}}, 2 * FaultWorld::truth)) << more;
    world.ctl({"remove", "web1", "--force"});
    EXPECT_TRUE(world.settles({{"web1", false}})) << more;
    EXPECT_EQ(FaultWorld::descriptors(world.daemon()), before) << more;
  }
}

}  // namespace
}  // namespace host::fakes
