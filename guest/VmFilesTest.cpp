// What three programs must agree on, in the bytes that earlier versions of them use.
#include <gtest/gtest.h>

#include "guest/ShimProtocol.h"
#include "guest/Variables.h"
#include "guest/VmFiles.h"

namespace guest {
namespace {

TEST(VmFiles, StandInTheVmsDirectoryBelowTheRunDirectory) {
  EXPECT_EQ(vmsDirectoryOf("/run/vmagent"), "/run/vmagent/vm");
  EXPECT_EQ(directoryOf("/run/vmagent", "web1"), "/run/vmagent/vm/web1");
  EXPECT_EQ(fileOf("/r", "web1", shimSocket), "/r/vm/web1/shim.sock");
  EXPECT_EQ(fileOf("/r", "web1", consoleSocket), "/r/vm/web1/console.sock");
  EXPECT_EQ(fileOf("/r", "web1", screenSocket), "/r/vm/web1/vnc.sock");
  EXPECT_EQ(fileOf("/r", "web1", consoleLog), "/r/vm/web1/console.log");
  EXPECT_EQ(fileOf("/r", "web1", shimLog), "/r/vm/web1/shim.log");
  EXPECT_EQ(fileOf("/r", "web1", lastErrorFile), "/r/vm/web1/last-error");
  EXPECT_EQ(fileOf("/r", "web1", problemFile), "/r/vm/web1/problem");
  EXPECT_EQ(fileOf("/r", "web1", lockFile), "/r/vm/web1/lock");
}

TEST(VmFiles, HaveTheMonitorWhereTheAgentLooksForIt) {
  EXPECT_EQ(monitorOf("web1"), "/var/run/web1.monitor");
  EXPECT_EQ(vmOfMonitor(monitorOf("a.b-c_1")), "a.b-c_1");
  for (const char* path : {"", "/var/run/.monitor", "/var/run.monitor", "/var/web1.monitor",
                           "/var/run/web1.monitors", "/var/runs/web1.monitor"})
    EXPECT_EQ(vmOfMonitor(path), "") << path;
  // A socket is moved from one to the other, which is possible in one file system only.
  EXPECT_TRUE(std::string_view(startingMonitor).starts_with(monitorsDirectory));
}

TEST(ShimProtocol, AsksForAStopInOneLine) {
  EXPECT_EQ(stopRequest("15"), "{\"stop\":{\"timeout\":15}}\n");
}

TEST(ShimProtocol, TellsTheRowInOneLine) {
  EXPECT_EQ(rowRequest("a-1", 7), "{\"row\":{\"store\":\"a-1\",\"sequence\":7}}\n");
}

TEST(ShimProtocol, KnowsAShimThatEndsItsGuestByItsGreeting) {
  EXPECT_TRUE(isStopping(R"({"shim":1,"vm":"web1","pid":7,"qemu":8,"state":"stopping"})"));
  EXPECT_FALSE(isStopping(R"({"shim":1,"vm":"web1","pid":7,"qemu":8,"state":"running"})"));
  EXPECT_FALSE(isStopping(R"({"shim":1,"vm":"stopping","pid":7,"qemu":8,"state":"starting"})"));
  EXPECT_FALSE(isStopping(""));
}

TEST(Variables, KnowThePoliciesOfAcceleration) {
  EXPECT_EQ(accelerationFrom("auto"), Acceleration::automatic);
  EXPECT_EQ(accelerationFrom("kvm"), Acceleration::kvm);
  EXPECT_EQ(accelerationFrom("tcg"), Acceleration::tcg);
  EXPECT_EQ(accelerationFrom("KVM"), std::nullopt);
  EXPECT_EQ(accelerationFrom(""), std::nullopt);
  EXPECT_EQ(accelerationFrom(defaultAcceleration), Acceleration::automatic);
}

}  // namespace
}  // namespace guest
