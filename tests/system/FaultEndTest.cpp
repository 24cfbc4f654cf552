// A guest that ends while the daemon is about to read what it said: the agent hears of the lost
// connection before it hears of the end, and looks for the guest once more.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>

#include "guest/VmFiles.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;

// Holds a process, and lets go of it at its end.
class Held {
 public:
  explicit Held(pid_t process) : process_(process) {
    call(PTRACE_SEIZE, PTRACE_O_TRACESYSGOOD);
    call(PTRACE_INTERRUPT);
    (void)stopped();
  }
  Held(const Held&) = delete;
  ~Held() { call(PTRACE_DETACH); }

  // Until its loop has been told of something that is ready, and has looked at nothing yet.
  void untilItHears() const {
    constexpr int atSyscall = SIGTRAP | 0x80;
    uint64_t called = 0;
    for (int signal = 0;;) {
      call(PTRACE_SYSCALL, signal);
      const int reason = stopped();
      signal = reason == atSyscall || reason == SIGTRAP ? 0 : reason;
      if (reason != atSyscall) continue;
      __ptrace_syscall_info info{};
      (void)ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof info, &info);
      if (info.op == PTRACE_SYSCALL_INFO_ENTRY) called = info.entry.nr;
      if (info.op == PTRACE_SYSCALL_INFO_EXIT && waits(called) && info.exit.rval > 0) return;
    }
  }

 private:
  static bool waits(uint64_t call) { return call == SYS_epoll_pwait2 || call == SYS_epoll_wait; }

  void call(__ptrace_request request, long data = 0) const {
    EXPECT_EQ(ptrace(request, process_, 0, data), 0) << request;
  }
  // Why it has stopped.
  int stopped() const {
    int status = 0;
    EXPECT_EQ(waitpid(process_, &status, __WALL), process_);
    EXPECT_TRUE(WIFSTOPPED(status)) << status;
    if (!WIFSTOPPED(status)) std::abort();
    return WSTOPSIG(status);
  }

  const pid_t process_;
};

class EndingGuest : public testing::Test {
 protected:
  EndingGuest() {
    world.start({"--trace", "1,2,8"});
    before_ = FaultWorld::descriptors(world.daemon());
  }

  // From then on its answer to a poll is all that the daemon hears.
  void runGuest() {
    ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
    const Expected expected{"web1", true, world.qemu("web1")};
    ASSERT_TRUE(world.settles({expected}));
    ASSERT_TRUE(world.rests({expected}));
  }
  // The daemon is about to read what the guest says, and does once the guest has ended.
  void endWhileItIsHeard(pid_t killed) const {
    const Held daemon(world.daemon());
    daemon.untilItHears();
    FaultWorld::signal(killed, SIGKILL);
    EXPECT_TRUE(waitUntil([] { return FaultWorld::qemus("web1").empty(); }));
    EXPECT_TRUE(waitUntil([this] { return world.guests("web1").empty(); }));
  }
  void expectNobodyWaited() const {
    ASSERT_TRUE(
        waitUntil([this] { return !world.hasRow("vmProcess", "web1", R"("process":"running")"); },
                  2 * FaultWorld::truth));
    const std::string log = world.log();
    const size_t lost = log.find("qemu monitor has forcibly closed conn");
    EXPECT_LT(lost, log.find("qemu-kvm exited")) << "it was told of in the other order";
    EXPECT_EQ(world.looks().size(), 2U) << log;
    for (const double seconds : world.looks()) EXPECT_LT(seconds, FaultWorld::pause);
  }
  void expectNothingLeft() const {
    EXPECT_TRUE(waitUntil([] { return !fs::exists(guest::monitorOf("web1")); }));
    world.ctl({"disable", "web1", "--wait"});
    EXPECT_TRUE(world.settles({{"web1", false}}));
    EXPECT_EQ(FaultWorld::descriptors(world.daemon()), before_);
  }

  FaultWorld world;

 private:
  size_t before_ = 0;
};

TEST_F(EndingGuest, WhoseQemuIsKilledWhileItIsHeardKeepsNobodyWaiting) {
  ASSERT_NO_FATAL_FAILURE(runGuest());
  endWhileItIsHeard(world.qemu("web1"));
  expectNobodyWaited();
  EXPECT_THAT(world.shownProblem("web1"), HasSubstr("signal 9"));
  expectNothingLeft();
}

TEST_F(EndingGuest, WhoseShimIsKilledWhileItIsHeardKeepsNobodyWaiting) {
  ASSERT_NO_FATAL_FAILURE(runGuest());
  endWhileItIsHeard(world.keeper("web1"));
  expectNobodyWaited();
  expectNothingLeft();
}

TEST_F(EndingGuest, ThatWasTakenUpKeepsNobodyWaiting) {
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const Expected expected{"web1", true, world.qemu("web1")};
  world.end(SIGKILL);
  world.start({"--trace", "1,2,8"});
  ASSERT_TRUE(world.settles({expected}));
  ASSERT_TRUE(world.rests({expected}));
  endWhileItIsHeard(expected.qemu);
  expectNobodyWaited();
  expectNothingLeft();
}

}  // namespace
}  // namespace host::fakes
