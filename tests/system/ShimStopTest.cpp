// How a guest is stopped over its shim's own socket.
#include <gmock/gmock.h>

#include <csignal>

#include "shim/fakes/ShimWorld.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::comesToHold;
using fakes::exited;
using fakes::LineClient;
using rt::fakes::contentOf;
using rt::fakes::modeOf;
using testing::HasSubstr;
using testing::Not;

constexpr char done[] = "{\"return\":{}}";

// A QEMU whose guest shuts down when its power button is pressed.
constexpr char obedientQemu[] = R"(
printf '{"QMP": {}}\n' >&3
while read -r line <&3; do
  printf '{"return": {}, "id": %s\n' "${line##*\"id\":}" >&3
  case $line in *system_powerdown*) echo powering down; exit 0;; esac
done)";

class ShimStop : public fakes::ShimWorld {};

TEST_F(ShimStop, IsFirstLeftToTheGuest) {
  const auto shim = start(script(obedientQemu));
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  EXPECT_EQ(host.ask(R"({"stop":{"timeout":60}})"), done);
  EXPECT_EQ(host.line(), "{\"end\":{\"exit\":0}}");
  EXPECT_EQ(exited(shim->wait()), 0);
  EXPECT_THAT(contentOf(file("shim.log")), HasSubstr("qemu: powering down"));
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("asks QEMU to quit")));
}

TEST_F(ShimStop, EndsAGuestThatIgnoresItsPowerButtonOnceTimeIsUp) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  EXPECT_EQ(host.ask(R"({"stop":{"timeout":0.3}})"), done);
  EXPECT_EQ(host.line(), "{\"end\":{\"exit\":0}}");
  EXPECT_EQ(exited(shim->wait()), 0);
  const std::string log = contentOf(file("shim.log"));
  const size_t pressed = log.find("presses the guest's power button");
  ASSERT_NE(pressed, std::string::npos) << log;
  EXPECT_NE(log.find("asks QEMU to quit", pressed), std::string::npos) << log;
  for (const char* const name : {"shim.sock", "problem", "last-error"})
    EXPECT_EQ(modeOf(file(name)), -1) << name;
  EXPECT_EQ(modeOf(monitor()), -1);
}

TEST_F(ShimStop, TakesAsLongAsIsConfiguredUnlessToldOtherwise) {
  auto configured = environment();
  configured["VMAGENT_STOP_TIMEOUT"] = "0";
  fakes::ShimProcess shim(VMAGENT_SHIM, arguments(), configured);
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{}})");
  EXPECT_EQ(exited(shim.wait()), 0);
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("power button")));
}

TEST_F(ShimStop, IsHurriedByASignal) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":3600}})");
  EXPECT_THAT(host.ask(R"({"status":{}})"), HasSubstr("\"state\":\"stopping\""));
  shim->signal(SIGTERM);
  EXPECT_EQ(exited(shim->wait()), 0);
}

TEST_F(ShimStop, IsHurriedByBeingAskedAgain) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":3600}})");
  host.ask(R"({"stop":{"timeout":3600}})");
  EXPECT_FALSE(fakes::becomesReadable(shim->pipe().number(), 500)) << "that is no less time";
  host.ask(R"({"stop":{"timeout":0}})");
  EXPECT_EQ(exited(shim->wait()), 0);
}

TEST_F(ShimStop, DuringTheStartEndsAQemuThatDoesNotGreet) {
  const auto shim = start(script("echo up\nexec sleep 1000"));
  ASSERT_TRUE(comesToHold(file("shim.log"), "qemu: up"));
  LineClient host(file("shim.sock"));
  EXPECT_THAT(host.line(), HasSubstr("\"state\":\"starting\""));
  EXPECT_EQ(host.ask(R"({"stop":{"timeout":3600}})"), done);
  EXPECT_EQ(host.line(), "{\"end\":{\"signal\":15}}");
  EXPECT_EQ(fakes::signaled(shim->wait()), SIGTERM);
}

TEST_F(ShimStop, BeforeTheGuestRanNeedsNoPowerButton) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.line();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":3600}})");
  EXPECT_EQ(exited(shim->wait()), 0);
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("power button")));
}

TEST_F(ShimStop, LetsASuccessorWaitForTheEndAndStartAfresh) {
  const auto first = start();
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0.5}})");
  const auto second = start();
  EXPECT_EQ(exited(first->wait()), 0);
  AgentClient next(monitor());
  next.bringUp();
  EXPECT_THAT(next.ask(fakes::queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_NE(second->qemu(), 0);
}

TEST_F(ShimStop, IsAskedForAtASocketThatSaysHowTheGuestIs) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_EQ(modeOf(file("shim.sock")), 0660);
  LineClient host(file("shim.sock"));
  const std::string pids =
      std::to_string(shim->pid()) + ",\"qemu\":" + std::to_string(shim->qemu());
  EXPECT_EQ(host.line(),
            "{\"shim\":1,\"vm\":\"guest0\",\"pid\":" + pids + ",\"state\":\"running\"}");
  EXPECT_EQ(host.ask(R"({"status":{}})"),
            "{\"return\":{\"state\":\"running\",\"qemu\":" + std::to_string(shim->qemu()) +
                ",\"agent\":true,\"console\":\"" + agent.console() + "\",\"problems\":[]}}");
}

TEST_F(ShimStop, LeavesProblemsInAFileUntilTheyAreSolved) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(shim->qemu(), SIGSTOP));
  agent.ask(fakes::queryStatus);
  EXPECT_TRUE(comesToHold(file("problem"), "QEMU does not answer\n"));
  EXPECT_EQ(modeOf(file("problem")), 0640);
  EXPECT_TRUE(fakes::signalProcess(shim->qemu(), SIGCONT));
  agent.ask(fakes::queryStatus);
  LineClient host(file("shim.sock"));
  host.line();
  EXPECT_THAT(host.ask(R"({"status":{}})"), HasSubstr("\"problems\":[]"));
  EXPECT_EQ(modeOf(file("problem")), -1);
}

}  // namespace
}  // namespace shim
