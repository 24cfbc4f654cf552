// What an operator does to a guest as at a machine's front, with a real QEMU and what is shipped.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/GuestFixture.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Power : public GuestFixture {
 protected:
  bool hasEnd(const std::string& name, const std::string& cause) const {
    return waitUntil(
        [&] {
          return world.hasRow("vmProcess", name, R"("process":"none")") &&
                 world.hasRow("vmProcess", name, R"("endCause":")" + cause + "\"");
        },
        20);
  }
  int bootsOf(const std::string& name) const {
    const std::string all = world.console(name);
    int boots = 0;
    for (size_t at = all.find(ready); at != std::string::npos; at = all.find(ready, at + 1))
      ++boots;
    return boots;
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // How many pictures that process has open.
  static int picturesOf(pid_t process) {
    int count = 0;
    const std::filesystem::path open("/proc/" + std::to_string(process) + "/fd");
    for (const auto& each : std::filesystem::directory_iterator(open)) {
      std::error_code gone;
      const auto what = std::filesystem::read_symlink(each, gone).string();
      count += what.starts_with("/memfd:picture") ? 1 : 0;
    }
    return count;
  }
};

TEST_F(Power, HoldsAGuestAndLetsItGoOn) {
  start();
  runVm("web1");
  ASSERT_EQ(world.vmctl({"pause", "web1"}).status, 0);
  EXPECT_TRUE(says("web1", "is paused")) << told("web1");
  EXPECT_TRUE(says("web1", "it was paused by ")) << told("web1");
  EXPECT_TRUE(says("web1", "To type: vmctl resume web1"));
  const size_t before = world.console("web1").size();
  world.type("web1", "x");
  EXPECT_TRUE(becomes("web1", "Stopped")) << "as the agent hears of QEMU";
  EXPECT_EQ(world.console("web1").size(), before) << "it hears nothing";
  ASSERT_EQ(world.vmctl({"resume", "web1"}).status, 0);
  EXPECT_TRUE(says("web1", "is running")) << told("web1");
  expectShownRunning("web1");
  expectEcho("web1", "y");
}

TEST_F(Power, KeepsAGuestPausedOverItsDaemon) {
  start();
  runVm("web1");
  ASSERT_EQ(world.vmctl({"pause", "web1"}).status, 0);
  ASSERT_TRUE(says("web1", "is paused"));
  const auto qemus = world.qemus("web1");
  world.end(SIGKILL);
  start();
  EXPECT_TRUE(becomes("web1", "Stopped")) << "it was let run, as far as the agent knows";
  EXPECT_TRUE(says("web1", "is paused")) << told("web1");
  EXPECT_EQ(world.qemus("web1"), qemus);
  ASSERT_EQ(world.vmctl({"resume", "web1"}).status, 0);
  EXPECT_TRUE(says("web1", "is running")) << told("web1");
  expectEcho("web1", "y");
}

TEST_F(Power, ResetsAGuestThatKeepsItsProcess) {
  start();
  runVm("web1");
  const auto qemus = world.qemus("web1");
  ASSERT_EQ(world.vmctl({"reset", "web1"}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("resets":1)"); }, 20))
      << told("web1");
  EXPECT_EQ(world.qemus("web1"), qemus);
  EXPECT_TRUE(waitUntil([&] { return bootsOf("web1") == 2; }, 20));
  expectEcho("web1", "y");
}

TEST_F(Power, TakesAPictureAndPressesKeysAndInterrupts) {
  start();
  runVm("web1");
  const std::string picture = "/tmp/web1.png";
  const Ended taken = world.vmctl({"screenshot", "web1", picture});
  ASSERT_EQ(taken.status, 0) << taken.err << told("web1");
  EXPECT_THAT(contentOf(picture), StartsWith("\x89PNG\r\n\x1a\n"));
  EXPECT_THAT(contentOf(picture), HasSubstr("IEND"));
  std::filesystem::remove(picture);
  EXPECT_EQ(world.vmctl({"key", "web1", "ctrl-alt-delete"}).status, 0);
  EXPECT_EQ(world.vmctl({"nmi", "web1"}).status, 0);
  const Ended wrong = world.vmctl({"key", "web1", "no-such"});
  EXPECT_EQ(wrong.status, 5) << wrong.err;
  EXPECT_THAT(wrong.err, HasSubstr("'no-such' is refused: must be QEMU's names of keys"));
}

// QEMU would keep the memory of each: it had none left for a card after a thousand.
TEST_F(Power, TakesAnyNumberOfPicturesOfAPausedGuestAndItsQemuKeepsNone) {
  start();
  runVm("web1");
  ASSERT_EQ(world.vmctl({"pause", "web1"}).status, 0);
  const std::string picture = "/tmp/web1-still.png";
  for (int i = 0; i < 5; ++i) {
    const Ended taken = world.vmctl({"screenshot", "web1", picture});
    ASSERT_EQ(taken.status, 0) << taken.err << told("web1");
    EXPECT_THAT(contentOf(picture), HasSubstr("IEND"));
  }
  std::filesystem::remove(picture);
  const pid_t qemu = world.qemus("web1").front();
  EXPECT_LE(picturesOf(qemu), 1);
  ASSERT_EQ(world.vmctl({"resume", "web1"}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return picturesOf(qemu) == 0; }, 10));
}

TEST_F(Power, WorksWithoutADaemon) {
  start();
  runVm("web1");
  world.end(SIGKILL);
  EXPECT_EQ(world.vmctl({"pause", "web1"}).status, 0);
  EXPECT_EQ(world.vmctl({"resume", "web1"}).status, 0);
  const Ended stopped = world.vmctl({"stop", "web1", "--now", "--wait"});
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_THAT(stopped.err, HasSubstr("its guest has ended"));
  EXPECT_TRUE(world.qemus("web1").empty());
  start();
  EXPECT_TRUE(hasEnd("web1", "powered-off")) << told("web1");
  EXPECT_THAT(world.row("vmProcess", "web1"), HasSubstr("switched off by "));
}

TEST_F(Power, SwitchesADeafGuestOffAtOnce) {
  world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "60"});
  bootVm("web1");
  const Ended stopped = world.vmctl({"stop", "web1", "--now", "--wait", "--timeout", "x"});
  EXPECT_EQ(stopped.status, 2);
  const Ended now = world.vmctl({"stop", "web1", "--now", "--wait"});
  EXPECT_EQ(now.status, 0) << now.err << told("web1");
  EXPECT_TRUE(hasEnd("web1", "powered-off")) << told("web1");
}

TEST_F(Power, GivesADeafGuestTheTimeThatItIsToldAndLessWhenToldAgain) {
  world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "1"});
  bootVm("web1");
  ASSERT_EQ(world.vmctl({"stop", "web1", "--timeout", "600"}).status, 0);
  EXPECT_TRUE(says("web1", "is switched off in 9m")) << told("web1");
  EXPECT_FALSE(waitUntil([&] { return world.qemus("web1").empty(); }, 10))
      << "it has more than the daemon's second";
  ASSERT_EQ(world.vmctl({"stop", "web1"}).status, 0);
  EXPECT_EQ(world.qemus("web1").size(), 1U) << "to ask again cuts nothing off";
  EXPECT_EQ(world.vmctl({"stop", "web1", "--now", "--wait"}).status, 0);
  EXPECT_TRUE(hasEnd("web1", "asked-forced")) << told("web1");
}

TEST_F(Power, StartsWhatHasEnded) {
  start();
  bootVm("web1");
  world.type("web1", powerOff);
  ASSERT_TRUE(hasEnd("web1", "guest-shutdown")) << told("web1");
  const Ended started = world.vmctl({"start", "web1", "--wait"});
  EXPECT_EQ(started.status, 0) << started.err << told("web1");
  EXPECT_TRUE(says("web1", "is running"));
}

TEST_F(Power, RestartsADeafGuestAtOnce) {
  world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "600"});
  bootVm("web1");
  const auto before = world.qemus("web1");
  const Ended restarted = world.vmctl({"restart", "web1", "--now", "--wait"});
  EXPECT_EQ(restarted.status, 0) << restarted.err << told("web1");
  EXPECT_NE(world.qemus("web1"), before);
  EXPECT_TRUE(says("web1", "is running"));
}

TEST_F(Power, OfAGuestWhoseQemuStandsStillSaysSo) {
  start();
  bootVm("web1");
  kill(world.qemus("web1").front(), SIGSTOP);
  const Ended paused = world.vmctl({"pause", "web1"});
  EXPECT_EQ(paused.status, 1) << paused.err;
  EXPECT_THAT(paused.err, HasSubstr("QEMU does not answer"));
  kill(world.qemus("web1").front(), SIGCONT);
}

}  // namespace
}  // namespace host::fakes
