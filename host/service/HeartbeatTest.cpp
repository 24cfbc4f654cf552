// What the service manager is told, with a socket of the test's in its place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/service/Heartbeat.h"
#include "host/service/Supervision.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The environment of a service whose manager wants to hear from it every 10 s.
class HeartbeatTest : public testing::Test {
 protected:
  HeartbeatTest() {
    const std::string name = "vmagent-heartbeat-" + std::to_string(getpid());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);  // abstract: no file
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(bind(manager_, reinterpret_cast<const sockaddr*>(&address), size), 0);
    set("NOTIFY_SOCKET", "@" + name);
    set("WATCHDOG_USEC", "10000000");
    unset("WATCHDOG_PID");
  }
  ~HeartbeatTest() override {
    unset("NOTIFY_SOCKET");
    unset("WATCHDOG_USEC");
    close(manager_);
  }
  // NOLINTBEGIN(concurrency-mt-unsafe): one thread
  static void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }
  static void unset(const char* name) { unsetenv(name); }
  // NOLINTEND(concurrency-mt-unsafe)

  std::vector<std::string> heard() const {
    std::vector<std::string> all;
    char text[256];
    ssize_t size = 0;
    while ((size = recv(manager_, text, sizeof text, MSG_DONTWAIT)) > 0)
      all.emplace_back(text, static_cast<size_t>(size));
    return all;
  }

  const int manager_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager loop{clock};
};

TEST_F(HeartbeatTest, IsTwiceAsOftenAsTheManagerAsksFor) {
  const auto heartbeat = rt::make<Heartbeat>(clock);
  loop.turn(rt::Seconds(0));
  EXPECT_THAT(heard(), ElementsAre("WATCHDOG=1"));
  clock->advance(rt::Seconds(4.9));
  EXPECT_THAT(heard(), IsEmpty());
  clock->advance(rt::Seconds(10.2));
  EXPECT_EQ(heard().size(), 3U);
}

TEST_F(HeartbeatTest, EndsWhenTheLoopDoesNotTurn) {
  const auto heartbeat = rt::make<Heartbeat>(clock);
  loop.turn(rt::Seconds(0));
  heard();
  clock->nowIs(clock->now() + rt::Seconds(3600));
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(HeartbeatTest, IsSilentWhenTheManagerDoesNotAskForIt) {
  unset("WATCHDOG_USEC");
  const auto heartbeat = rt::make<Heartbeat>(clock);
  loop.turn(rt::Seconds(0));
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(HeartbeatTest, IsSilentWhenAnotherProcessIsToBeHeard) {
  set("WATCHDOG_PID", std::to_string(getpid()));
  EXPECT_EQ(aliveInterval(), rt::Seconds(5));
  set("WATCHDOG_PID", "1");
  EXPECT_EQ(aliveInterval(), std::nullopt);
  unset("WATCHDOG_PID");
  set("WATCHDOG_USEC", "soon");
  EXPECT_EQ(aliveInterval(), std::nullopt);
}

// Without a cure this would never end.
TEST_F(HeartbeatTest, DoesNotWaitForAManagerThatStandsStill) {
  size_t count = 0;
  while (notifyAlive()) ++count;
  EXPECT_FALSE(notifyReady());
  EXPECT_EQ(heard().size(), count);
  EXPECT_TRUE(notifyReady());
  EXPECT_THAT(heard(), ElementsAre(HasSubstr("READY=1")));
}

TEST_F(HeartbeatTest, IsForNobodyWhereThereIsNoManager) {
  unset("NOTIFY_SOCKET");
  EXPECT_TRUE(notifyAlive());
  set("NOTIFY_SOCKET", "@vmagent-nobody-" + std::to_string(getpid()));
  EXPECT_TRUE(notifyAlive());
  set("NOTIFY_SOCKET", std::string(300, 'x'));
  EXPECT_TRUE(notifyAlive());
}

TEST_F(HeartbeatTest, ComesBesideTheNewsThatTheDaemonIsReadyAndThatItEnds) {
  notifyReady();
  notifyStopping();
  EXPECT_THAT(heard(), ElementsAre(HasSubstr("READY=1"), HasSubstr("STOPPING=1")));
}

}  // namespace
}  // namespace host
