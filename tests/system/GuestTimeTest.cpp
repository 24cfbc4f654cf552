// How long guests keep the daemon from other guests. To be run with no other test beside it.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>

#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

// What a guest's end may take from others, in seconds.
constexpr double mayTake = 0.05;

class GuestsTime : public GuestFixture {
 protected:
  // Of several ends one that takes no time is enough: a busy machine is late now and then, a daemon
  // that waits for a dying guest is late each time.
  const std::vector<std::string> dying = {"web1", "web2", "web3", "web4", "web5"};

  // For how long, in seconds, the daemon did nothing else while one of them ended: how much longer
  // it took at most to carry out what was asked of it, over and over, than it takes when none ends.
  // The daemon is one thread: another guest's poll that is due meanwhile would be as late.
  double taken(const std::function<void(const std::string&)>& end) {
    start();
    for (const auto& name : dying) EXPECT_EQ(addVm(name).status, 0);
    for (const auto& name : dying) expectShownRunning(name);
    // Until then it reads nothing that is typed.
    for (const auto& name : dying) EXPECT_TRUE(world.saysOnConsole(name, "BOOTSECTOR READY"));
    double least = pollInterval;
    for (const auto& name : dying) {
      double undisturbed = 0;
      for (int i = 0; i < 10; ++i) undisturbed = std::max(undisturbed, answerTakes());
      end(name);
      double longest = 0;
      for (bool isOver = false; !isOver;) {
        isOver = world.hasRow("vmStatus", name, R"("state":"Stopped")");  // once more after it
        longest = std::max(longest, answerTakes());
      }
      least = std::min(least, longest - undisturbed);
      if (least < mayTake) break;
    }
    return least;
  }

 private:
  // Commits a row; how long it takes to have its effect in the status.
  double answerTakes() {
    using Clock = std::chrono::steady_clock;
    const std::string device = "probe" + std::to_string(++rows_);
    const auto begin = Clock::now();
    world.write("interface", "Probe", R"({"deviceName":")" + device + "\"}");
    EXPECT_TRUE(waitUntil([&] { return world.hasRow("interfaceStatus", "Probe", device); }));
    return std::chrono::duration<double>(Clock::now() - begin).count();
  }

  int rows_ = 0;
};

TEST_F(GuestsTime, APowerOffDelaysOthersByLessThan50Ms) {
  EXPECT_LT(taken([&](const std::string& name) { world.type(name, powerOff); }), mayTake);
}

TEST_F(GuestsTime, AKillDelaysOthersByLessThan50Ms) {
  EXPECT_LT(taken([&](const std::string& name) {
              Vm::fakes::signalProcess(world.qemus(name).at(0), SIGKILL);
            }),
            mayTake);
}

// Of several starts one is enough, as of the ends.
TEST_F(GuestsTime, AStartIsShownRunningInHalfASecondAndWaitedForNoLonger) {
  using Clock = std::chrono::steady_clock;
  const auto since = [](Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
  };
  start();
  ASSERT_EQ(addVm("web1").status, 0);
  world.ctl({"disable", "web1", "--wait"});
  double shown = pollInterval;
  double waited = pollInterval;
  for (int i = 0; i < 5 && (shown > 0.5 || waited > 1); ++i) {
    world.ctl({"enable", "web1"});
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", R"("enabled":true)"); }));
    const auto started = Clock::now();
    world.ctl({"wait", "web1", "--for", "state=Running"});
    shown = std::min(shown, since(started));
    world.ctl({"disable", "web1", "--wait"});
    const auto asked = Clock::now();
    world.ctl({"enable", "web1", "--wait"});
    waited = std::min(waited, since(asked));
    world.ctl({"disable", "web1", "--wait"});
  }
  EXPECT_LT(shown, 0.5);
  EXPECT_LT(waited, 1);
}

}  // namespace
}  // namespace host::fakes
