// Guests are ended without a daemon, as before the machine goes down.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "host/guests/DiskShims.h"
#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class EndOfAllGuests : public GuestFixture {
 protected:
  Ended endGuests(const std::string& stopTimeout = "1") const {
    return run({VMAGENTD, "--end-guests", "--state-dir", world.stateDir, "--run-dir", world.runDir,
                "--stop-timeout", stopTimeout});
  }
  std::string shimLog(const std::string& vm) const {
    return contentOf(world.runDir + "/vm/" + vm + "/shim.log");
  }
};

TEST_F(EndOfAllGuests, LeavesNothingButTheConfigurationAndTheNextDaemonStartsThemAgain) {
  addPort("Ethernet1");
  start();
  bootVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"});
  bootVm("web2");
  ASSERT_TRUE(waitUntil([] { return !macvtaps().empty(); }));
  const std::string row = world.row("vmConfig", "web1");
  ASSERT_EQ(world.end(SIGTERM), 0);
  ASSERT_THAT(world.qemus("web1"), SizeIs(1));

  const Ended ended = endGuests();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_THAT(world.guests(), IsEmpty());
  for (const char* vm : {"web1", "web2"}) {
    EXPECT_THAT(world.qemus(vm), IsEmpty());
    EXPECT_THAT(shimLog(vm), HasSubstr("presses the guest's power button"));
  }
  EXPECT_EQ(macvtaps(), "");
  EXPECT_EQ(world.row("vmConfig", "web1"), row);

  start();
  EXPECT_TRUE(waitUntil([&] {
    return world.qemus("web1").size() == 1 && world.qemus("web2").size() == 1;
  })) << world.log();
}

TEST_F(EndOfAllGuests, IsRefusedWhileADaemonRuns) {
  start();
  bootVm("web1");
  const Ended ended = endGuests();
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("vmagentd"));
  EXPECT_THAT(world.qemus("web1"), SizeIs(1));
  EXPECT_THAT(shimLog("web1"), Not(HasSubstr("power button")));
}

TEST_F(EndOfAllGuests, LeavesOneThatShutsDownAlreadyItsTime) {
  start();
  bootVm("web1");
  ASSERT_EQ(world.end(SIGTERM), 0);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(DiskShims(rt::String(world.runDir), "3").askToStop("web1", std::nullopt));
  EXPECT_EQ(endGuests().status, 0);
  EXPECT_THAT(world.qemus("web1"), IsEmpty());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2900));
}

// A shim may have a stand-in still, of the daemon that has just ended.
TEST_F(EndOfAllGuests, LeavesOneItsTimeThoughTwoProcessesCountAsItsGuest) {
  start();
  bootVm("web1");
  ASSERT_EQ(world.end(SIGTERM), 0);
  const pid_t another = fork();
  if (another == 0) {
    execl("/bin/sh", "/usr/bin/qemu-system-x86_64", "-c", "sleep 1", "sh",
          "socket,id=monitor,path=/var/run/web1.monitor,server,nowait", nullptr);
    _exit(1);
  }
  ASSERT_TRUE(waitUntil([&] { return world.guests("web1").size() == 2; }));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(endGuests("3").status, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2900));
  EXPECT_EQ(waitpid(another, nullptr, 0), another);
}

TEST_F(EndOfAllGuests, EndsOneWhoseShimStandsStill) {
  start();
  bootVm("web1");
  ASSERT_EQ(world.end(SIGTERM), 0);
  ASSERT_THAT(world.guests("web1"), SizeIs(1));
  Vm::fakes::signalProcess(world.guests("web1").front(), SIGSTOP);
  EXPECT_EQ(endGuests("0").status, 0);
  EXPECT_THAT(world.guests(), IsEmpty());
  EXPECT_TRUE(waitUntil([&] { return world.qemus("web1").empty(); }));
}

TEST_F(EndOfAllGuests, IsDoneWithoutAShim) {
  world.start({"--shim", "off"});
  world.addVm("bare", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return world.guests("bare").size() == 1; }));
  ASSERT_EQ(world.end(SIGTERM), 0);
  EXPECT_EQ(endGuests().status, 0);
  EXPECT_THAT(world.guests(), IsEmpty());
}

TEST_F(EndOfAllGuests, IsDoneWhereThereAreNone) {
  const Ended ended = endGuests();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "");
}

TEST_F(EndOfAllGuests, IsDoneThoughTheConfigurationIsDamagedAndSaysSo) {
  addPort("Ethernet1");
  start();
  bootVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"});
  ASSERT_TRUE(waitUntil([] { return !macvtaps().empty(); }));
  ASSERT_EQ(world.end(SIGTERM), 0);
  std::ofstream(world.stateDir + "/config.db") << std::string(4096, 'x');
  const Ended ended = endGuests();
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.err, HasSubstr("config.db"));
  EXPECT_THAT(world.guests(), IsEmpty());
  EXPECT_EQ(macvtaps(), "") << "it is known by the guest that had it";
}

}  // namespace
}  // namespace host::fakes
