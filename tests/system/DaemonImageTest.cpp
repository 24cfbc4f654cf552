// Disk images that are none, or that nobody can look at.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/DaemonFixture.h"
#include "tests/system/DeadFileSystem.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr double mostDelay = 0.2;  // seconds, of other VMs
constexpr double patience = 10;    // for a daemon that does not answer

class DaemonImages : public DaemonFixture {
 protected:
  // As a foreign program asks for it, which looks at nothing.
  void want(const std::string& name, const std::string& image) const {
    world.write("vmConfig", name, R"({"enabled":true,"diskImage":")" + image + R"(","memory":64})");
  }
  bool hasProblem(const std::string& name, const std::string& text) const {
    return world.hasRow("vmProblem", name, text);
  }
  static void makeDisk(const std::string& path) {
    std::ofstream(path) << "";
    fs::resize_file(path, 40000);
  }
  // Until the daemon has taken up a change, in seconds; measured a few times, the longest.
  double delay() const {
    double longest = 0;
    for (int i = 0; i < 10; ++i) {
      const std::string device = "probe" + std::to_string(++probes_);
      const auto begin = std::chrono::steady_clock::now();
      world.write("interface", "Probe", R"({"deviceName":")" + device + "\"}");
      const auto isTaken = [&] { return world.hasRow("interfaceStatus", "Probe", device); };
      if (!waitUntil(isTaken, patience)) return patience;
      const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
      longest = std::max(longest, taken.count());
    }
    return longest;
  }

 private:
  mutable int probes_ = 0;
};

TEST_F(DaemonImages, ThatAreNoFilesAreRefusedAndNeverOpened) {
  // To open it is to wait for who writes; of the other, to take part in its life.
  ASSERT_EQ(mkfifo("/var/run/fifo", 0600), 0);
  ASSERT_EQ(mknod("/var/run/device", S_IFCHR | 0600, makedev(1, 3)), 0);
  fs::create_directory("/var/run/folder");
  world.start();
  for (const char* each : {"fifo", "device", "folder"}) want(each, std::string("/var/run/") + each);
  EXPECT_LT(delay(), mostDelay);
  for (const char* each : {"fifo", "device", "folder"}) {
    EXPECT_TRUE(waitUntil([&] {
      return hasProblem(each, "must be a regular file or a block device");
    })) << each;
    EXPECT_THAT(world.guests(each), IsEmpty());
  }
  runVm("web1");
  EXPECT_THAT(world.log(), Not(HasSubstr("cannot open file"))) << "the agent was not asked";
}

TEST_F(DaemonImages, OnAFileSystemThatDoesNotAnswerDelayNoOtherVm) {
  const DeadFileSystem far("/var/run/far");
  world.start();
  runVm("before");
  want("far", "/var/run/far/disk.img");
  far.takeQuestion();
  EXPECT_LT(delay(), mostDelay);
  runVm("after");
  EXPECT_TRUE(waitUntil(
      [&] { return hasProblem("far", "must answer within 5 s: its file system does not"); }));
  EXPECT_LT(delay(), mostDelay);
  EXPECT_THAT(world.guests("far"), IsEmpty());
  EXPECT_TRUE(isOn("before"));
}

TEST_F(DaemonImages, AreUsedOnceTheirFileSystemIsThere) {
  DeadFileSystem far("/var/run/far");
  world.start();
  fs::create_symlink("/var/run/far/disk.img", "/var/run/disk");
  want("web1", "/var/run/disk");
  far.takeQuestion();
  ASSERT_TRUE(waitUntil([&] { return hasProblem("web1", "must answer within 5 s"); }));
  fs::remove("/var/run/disk");
  fs::create_symlink(world.image, "/var/run/disk");
  far.go();
  EXPECT_TRUE(waitUntil([&] { return isOn("web1"); }));
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "web1").empty(); }));
}

TEST_F(DaemonImages, ThatNobodyAnswersForKeepNoDaemonFromEnding) {
  const DeadFileSystem far("/var/run/far");
  world.start();
  want("far", "/var/run/far/disk.img");
  far.takeQuestion();
  EXPECT_EQ(world.end(SIGTERM), 0);
  world.start();  // the locks are free
  runVm("web1");
}

TEST_F(DaemonImages, ThatNobodyAnswersForHoldNoOperatorUpForLong) {
  const DeadFileSystem far("/var/run/far");
  world.start();
  const auto begin = std::chrono::steady_clock::now();
  const Ended added =
      world.vmctl({"add", "far", "--disk", "/var/run/far/disk.img", "--memory", "64"});
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
  EXPECT_EQ(added.status, 0);
  EXPECT_THAT(added.err, HasSubstr("must answer within 5 s: its file system does not"));
}

// What images are opened as, and by whom.

TEST_F(DaemonImages, AreWhatTheyBeganAsWhenTheyWereFirstStartedFrom) {
  makeDisk("/var/run/disk");
  world.start();
  want("web1", "/var/run/disk");
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  EXPECT_EQ(world.row("vmImage", "web1"), R"({"diskImage":"/var/run/disk","format":"raw"})");
  const std::string told =
      contentOf("/proc/" + std::to_string(world.guests("web1").at(0)) + "/environ");
  EXPECT_THAT(told, HasSubstr("VMAGENT_IMAGE_FORMAT=raw"));
}

TEST_F(DaemonImages, WhoseRowIsNotValidAreNotStartedFromUntilItIs) {
  makeDisk("/var/run/disk");
  world.start();
  world.write("vmImage", "web1", R"({"diskImage":"/var/run/disk","format":"vmdk"})");
  want("web1", "/var/run/disk");
  EXPECT_TRUE(waitUntil([&] { return hasProblem("web1", "must be raw or qcow2"); }));
  EXPECT_THAT(world.guests("web1"), IsEmpty());
  world.write("vmImage", "web1", R"({"diskImage":"/var/run/disk","format":"raw"})");
  EXPECT_TRUE(waitUntil([&] { return isOn("web1"); }));
}

TEST_F(DaemonImages, OfAVmAreNoOtherVmsUntilItIsOff) {
  makeDisk("/var/run/disk");
  fs::create_symlink("/var/run/disk", "/var/run/other-name");
  world.start();
  want("first", "/var/run/disk");
  ASSERT_TRUE(waitUntil([&] { return isOn("first"); }));
  want("second", "/var/run/other-name");
  EXPECT_TRUE(waitUntil([&] { return hasProblem("second", "VM 'first' has it"); }));
  EXPECT_THAT(world.guests("second"), IsEmpty());
  world.ctl({"restart", "first", "--wait"});
  EXPECT_THAT(world.guests("second"), IsEmpty()) << "who has it keeps it";
  world.ctl({"disable", "first", "--wait"});
  EXPECT_TRUE(waitUntil([&] { return isOn("second"); }));
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "second").empty(); }));
}

}  // namespace
}  // namespace host::fakes
