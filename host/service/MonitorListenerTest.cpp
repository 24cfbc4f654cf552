#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "host/service/MonitorListener.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr uid_t somebody = 12345;

using testing::HasSubstr;

class MonitorListenerTest : public testing::Test {
 protected:
  const std::string& folder() const { return folder_.path(); }
  rt::String path(const char* name) const { return rt::String(folder_ / name); }
  rt::String waiting() const { return path("starting"); }
  rt::String monitor() const { return path("vm1.monitor"); }

  // 0, or the errno of a connect to the path.
  static int connectTo(const rt::String& path) {
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.str().copy(address.sun_path, sizeof address.sun_path - 1);
    const int error =
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                          : errno;
    close(client);
    return error;
  }
  static int inChild(const std::function<int()>& act) {
    const pid_t child = fork();
    if (child == 0) _exit(act());
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  }
  static std::string failureOf(const std::function<void()>& act) {
    try {
      act();
    } catch (const rt::Exception& failure) {
      return failure.what();
    }
    return {};
  }
  static long openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  }
  bool isThere(const rt::String& path) const { return fs::exists(path.str()); }

 private:
  const rt::fakes::TestFolder folder_;
};

TEST_F(MonitorListenerTest, IsFoundAtThePathByTheFirstConnectAfterTheFork) {
  MonitorListener listener(waiting());
  listener.open(monitor());
  EXPECT_EQ(connectTo(monitor()), ENOENT) << "what is there now would be removed by the agent";
  inChild([] { return 0; });
  EXPECT_EQ(connectTo(monitor()), 0);
  EXPECT_FALSE(isThere(waiting()));
}

TEST_F(MonitorListenerTest, TakesThePlaceOfAStaleSocket) {
  MonitorListener listener(waiting());
  for (int i = 0; i < 2; ++i) {
    listener.open(monitor());
    inChild([] { return 0; });
    EXPECT_EQ(connectTo(monitor()), 0) << i;
    listener.settle();
  }
}

TEST_F(MonitorListenerTest, IsKeptOverAnExecByTheChildThatItIsForAndByNoOther) {
  MonitorListener listener(waiting());
  const auto staysOpen = [&] {
    return inChild([&] { return (fcntl(listener.number(), F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0; });
  };
  listener.open(monitor());
  EXPECT_NE(fcntl(listener.number(), F_GETFD) & FD_CLOEXEC, 0) << "here";
  EXPECT_EQ(staysOpen(), 1);
  EXPECT_NE(fcntl(listener.number(), F_GETFD) & FD_CLOEXEC, 0) << "here, still";
  EXPECT_EQ(staysOpen(), 0) << "the next child";
}

// A shim that stands still takes none of them.
TEST_F(MonitorListenerTest, HasRoomForConnectionsThatNobodyTakesAndNeverWaitsItself) {
  MonitorListener listener(waiting());
  listener.open(monitor());
  EXPECT_NE(fcntl(listener.number(), F_GETFL) & O_NONBLOCK, 0);
  inChild([] { return 0; });
  alarm(10);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(connectTo(monitor()), 0) << i;
  alarm(0);
}

// The child that it is for has it already, at the path.
TEST_F(MonitorListenerTest, IsMovedToItsPathByTheFirstForkOnly) {
  MonitorListener listener(waiting());
  listener.open(monitor());
  inChild([] { return 0; });
  fs::rename(monitor().str(), folder() + "/aside");
  fs::create_directory(waiting().str());
  inChild([] { return 0; });
  EXPECT_FALSE(isThere(monitor()));
  EXPECT_TRUE(isThere(waiting()));
}

TEST_F(MonitorListenerTest, IsFoundUntilTheGuestsEndIsKnown) {
  MonitorListener listener(waiting());
  for (const rt::String& each : {monitor(), path("vm2.monitor")}) {
    listener.open(each);
    inChild([] { return 0; });
    listener.settle();
    EXPECT_EQ(listener.number(), -1) << "it is meant for no other start";
  }
  EXPECT_EQ(connectTo(monitor()), 0);
  listener.close(monitor());
  EXPECT_EQ(connectTo(monitor()), ECONNREFUSED);
  EXPECT_EQ(connectTo(path("vm2.monitor")), 0);
}

TEST_F(MonitorListenerTest, IsLetGoOfWhenTheNextOfThatPathStandsThere) {
  MonitorListener listener(waiting());
  const long before = openDescriptors();
  for (int i = 0; i < 3; ++i) {
    listener.open(monitor());
    inChild([] { return 0; });
    listener.settle();
  }
  EXPECT_EQ(openDescriptors(), before + 1);
  listener.close(monitor());
  EXPECT_EQ(openDescriptors(), before);
}

// The agent goes on as if there were a child, and connects.
TEST_F(MonitorListenerTest, IsFoundAfterAForkThatFailedUntilItIsClosed) {
  const uid_t user = geteuid() == 0 ? somebody : geteuid();  // root may fork as it likes
  ASSERT_EQ(chown(folder().c_str(), user, getegid()), 0);
  EXPECT_EQ(inChild([&] {
              const rlimit none{0, 0};
              if (setuid(user) != 0 || setrlimit(RLIMIT_NPROC, &none) != 0) return 1;
              MonitorListener listener(waiting());
              listener.open(monitor());
              if (fork() >= 0) return 2;
              if (connectTo(monitor()) != 0) return 3;
              if ((fcntl(listener.number(), F_GETFD) & FD_CLOEXEC) == 0) return 4;
              listener.settle();
              listener.close(monitor());
              return connectTo(monitor()) == ECONNREFUSED && !isThere(waiting()) ? 0 : 5;
            }),
            0);
}

TEST_F(MonitorListenerTest, LeavesNothingWhereNothingWasForked) {
  const long before = openDescriptors();
  {
    MonitorListener listener(waiting());
    listener.open(monitor());
    listener.open(path("vm2.monitor"));
    listener.settle();
    EXPECT_EQ(openDescriptors(), before);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_FALSE(isThere(waiting()));
  EXPECT_FALSE(isThere(monitor()));
}

TEST_F(MonitorListenerTest, TakesUpWhereADaemonWasKilledBeforeItsFork) {
  MonitorListener killed(waiting());
  killed.open(monitor());
  MonitorListener next(waiting());
  next.open(monitor());
  inChild([] { return 0; });
  EXPECT_EQ(connectTo(monitor()), 0);
}

TEST_F(MonitorListenerTest, RemovesWhatAKilledDaemonHasLeft) {
  MonitorListener killed(waiting());
  killed.open(monitor());
  MonitorListener next(waiting());
  EXPECT_TRUE(isThere(waiting()));
  next.removeLeftover();
  EXPECT_FALSE(isThere(waiting()));
}

TEST_F(MonitorListenerTest, SaysThatADirectoryIsInItsPlaceUntilItIsRemoved) {
  MonitorListener listener(waiting());
  for (const rt::String& place : {monitor(), waiting()}) {
    fs::create_directory(place.str());
    EXPECT_EQ(failureOf([&] { listener.open(monitor()); }),
              "the monitor's socket " + place.str() +
                  " cannot be made: a directory is in its place; remove it");
    EXPECT_EQ(listener.number(), -1);
    fs::remove(place.str());
  }
  EXPECT_EQ(failureOf([&] { listener.open(monitor()); }), "");
}

TEST_F(MonitorListenerTest, SaysThatAPathIsTooLong) {
  MonitorListener listener(waiting());
  EXPECT_THAT(failureOf([&] { listener.open(path(std::string(120, 'x').c_str())); }),
              HasSubstr("its path is too long"));
}

TEST_F(MonitorListenerTest, SaysThatNoDescriptorIsLeftAndLeavesNothing) {
  MonitorListener listener(waiting());
  EXPECT_EQ(inChild([&] {
              for (; open("/dev/null", O_RDONLY) >= 0;) {
              }
              const bool said = failureOf([&] {
                                  listener.open(monitor());
                                }).find("Too many open files") != std::string::npos;
              return said && !isThere(waiting()) ? 1 : 0;
            }),
            1);
}

TEST_F(MonitorListenerTest, IsTheAgentsAlone) {
  MonitorListener listener(waiting());
  listener.open(monitor());
  struct stat facts {};
  ASSERT_EQ(stat(waiting().charPtr(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777U, 0600U);
}

}  // namespace
}  // namespace host
