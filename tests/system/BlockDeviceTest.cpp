// Block devices as disks: a guest and its machine never write the same. Needs loop devices and a
// file system, which others' kernels may lack.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/base/Descriptor.h"
#include "tests/system/DaemonFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using rt::Descriptor;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* place = "/var/run/mounted";
constexpr const char* aside = "/usr/bin/qemu-aside";

// A block device of 1 MiB with a file system on it.
class BlockDevice : public DaemonFixture {
 protected:
  void SetUp() override {
    std::ofstream("/var/run/backing") << "";
    fs::resize_file("/var/run/backing", 1 << 20);
    const Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    const int number = ioctl(control.number(), LOOP_CTL_GET_FREE);
    ASSERT_GE(number, 0) << std::strerror(errno);
    device = "/dev/loop" + std::to_string(number);
    loop.reset(open(device.c_str(), O_RDWR | O_CLOEXEC));
    const Descriptor backing(open("/var/run/backing", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(ioctl(loop.number(), LOOP_SET_FD, backing.number()), 0) << std::strerror(errno);
    const char* const tool = access("/sbin/mke2fs", X_OK) == 0 ? "/sbin/mke2fs" : "/bin/mke2fs";
    const Ended made = run({tool, "-F", device});
    ASSERT_EQ(made.status, 0) << made.err;
    fs::create_directories(place);
  }
  void TearDown() override {
    umount2(place, MNT_DETACH);
    ioctl(loop.number(), LOOP_CLR_FD);
    if (fs::exists(aside)) fs::rename(aside, Vm::fakes::qemuPath);
  }

  int mountError() const {
    return mount(device.c_str(), place, "ext4", 0, nullptr) == 0 ? 0 : errno;
  }
  // With a QEMU that does nothing with what it is given, and keeps it.
  void startWithShim() {
    fs::rename(Vm::fakes::qemuPath, aside);
    std::ofstream(Vm::fakes::qemuPath) << "#!/bin/sh\nexec sleep 1000\n";
    fs::permissions(Vm::fakes::qemuPath, fs::perms(0755));
    world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "0", "--qemu-reads",
                 Vm::fakes::programs});
  }
  void addVm(const std::string& name, const std::string& disk) const {
    world.ctl({"add", name, "--disk", disk, "--memory", "32", "--enabled"});
  }

  std::string device;
  Descriptor loop;
};

TEST_F(BlockDevice, ThatTheMachineHasMountedIsNoVmsUntilItIsFree) {
  world.start();  // first: it would have the mount, too
  ASSERT_EQ(mountError(), 0);
  const Ended added = world.vmctl({"add", "held", "--disk", device, "--memory", "32", "--enabled"});
  EXPECT_EQ(added.status, 0);
  EXPECT_THAT(added.err, HasSubstr("cannot be used now: the machine has it mounted"));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "held", "must not be in use"); }));
  EXPECT_THAT(world.guests("held"), IsEmpty());
  ASSERT_EQ(umount2(place, 0), 0);
  world.ctl({"restart", "held"});
  EXPECT_TRUE(waitUntil([&] { return isOn("held"); })) << world.row("vmProblem", "held");
  world.ctl({"remove", "held", "--force", "--wait"});  // the next test's database is this
}

TEST_F(BlockDevice, OfAGuestIsMountedByNobodyAndNoOtherGuestsByAnotherName) {
  startWithShim();
  addVm("first", device);
  ASSERT_TRUE(waitUntil([&] { return mountError() == EBUSY || (umount2(place, 0), false); }));
  struct stat facts {};
  ASSERT_EQ(stat(device.c_str(), &facts), 0);
  ASSERT_EQ(mknod("/var/run/node", S_IFBLK | 0600, facts.st_rdev), 0);
  world.ctl({"add", "second", "--disk", "/var/run/node", "--memory", "32", "--enabled"});
  EXPECT_TRUE(waitUntil([&] {
    return world.hasRow("vmProblem", "second", "VM 'first' has it") ||
           world.hasRow("vmProblem", "second", "must not be in use");
  })) << world.row("vmProblem", "second");
  EXPECT_THAT(world.guests("second"), IsEmpty());
  EXPECT_THAT(world.guests("first"), SizeIs(1));
  world.ctl({"remove", "second", "--force", "--wait"});
  world.ctl({"remove", "first", "--force", "--wait"});
  EXPECT_EQ(mountError(), 0) << "it is free again";
}

// The shim is the last to look.
TEST_F(BlockDevice, ThatTheMachineMountsAfterItWasLookedAtIsRefusedByTheShim) {
  ASSERT_EQ(mountError(), 0);
  fs::create_directories("/var/run/shims");
  setenv("VMAGENT_QEMU", "/bin/true", 1);
  setenv("VMAGENT_RUN_DIR", "/var/run/shims", 1);
  setenv("VMAGENT_IMAGE_FORMAT", "raw", 1);
  const Ended shim = run({VMAGENT_SHIM, "-name", "web1", "-chardev",
                          "socket,id=monitor,path=/var/run/web1.monitor,server,nowait", "-drive",
                          "file=" + device + ",if=none,id=d"});
  for (const char* name : {"VMAGENT_QEMU", "VMAGENT_RUN_DIR", "VMAGENT_IMAGE_FORMAT"})
    unsetenv(name);
  EXPECT_EQ(shim.status, 1);
  EXPECT_THAT(shim.err, HasSubstr("'" + device + "' is refused: it must not be in use"));
}

}  // namespace
}  // namespace host::fakes
