// Guests outlive the daemon that started them: daemons come and go, and are killed.
#include <gmock/gmock.h>

#include <csignal>

#include "netlink/MacvtapSetup.h"
#include "runtime/fakes/TraceRecorder.h"
#include "shim/fakes/AdoptionWorld.h"
#include "shim/keep/VmDirectory.h"
#include "tests/system/KernelSandbox.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::comesToHold;
using fakes::DaemonProcess;
using fakes::exited;
using fakes::LineClient;
using fakes::queryStatus;
using fakes::readUntil;
using fakes::ShimProcess;
using fakes::signaled;
using rt::fakes::contentOf;
using rt::fakes::modeOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ShimAdoption : public fakes::AdoptionWorld {};

TEST_F(ShimAdoption, LetsTheGuestGoOnUnderItsQemuAndConsole) {
  DaemonProcess& first = daemon();
  std::string path;
  pid_t qemu = 0;
  {
    AgentClient agent(monitor());
    agent.bringUp();
    path = agent.console();
    qemu = qemusOfOurs().at(0);
  }
  const rt::Descriptor terminal = openTerminal(path);
  readUntil(terminal, "BOOTSECTOR READY\r\n");
  first.kill();
  ASSERT_EQ(write(terminal.number(), "p", 1), 1);
  EXPECT_THAT(readUntil(terminal, "p"), HasSubstr("p"));
  const DaemonProcess& second = daemon();
  AgentClient agent(monitor());
  EXPECT_THAT(agent.line(), testing::StartsWith(R"({"QMP": )"));
  EXPECT_EQ(agent.ask(R"({ "execute": "qmp_capabilities","id": "enter" })"),
            R"({"return": {}, "id": "enter"})");
  EXPECT_EQ(agent.ask(R"({ "execute": "cont","id": "cont" })"), R"({"return": {}, "id": "cont"})");
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_EQ(agent.console(), path);
  ASSERT_EQ(write(terminal.number(), "q", 1), 1);
  EXPECT_THAT(readUntil(terminal, "q"), HasSubstr("q"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
  EXPECT_EQ(keeper(), first.shim());
  EXPECT_NE(second.shim(), first.shim());
  EXPECT_THAT(contentOf("/proc/" + std::to_string(second.shim()) + "/status"),
              HasSubstr("CapPrm:\t0000000000000000\n"))
      << "who stands in does nothing that takes a right";
  EXPECT_EQ(modeOf(monitor()), 0600);
  EXPECT_THAT(contentOf(file("shim.log")),
              HasSubstr(" shim: keeps the guest for process " + std::to_string(second.pid()) +
                        " from now on, at which process " + std::to_string(second.shim()) +
                        " stands in for it\n"));
}

// For a daemon that comes later, and knows nothing of this.
TEST_F(ShimAdoption, LeavesTheGuestOfTheRowThatItsShimWasToldLast) {
  auto told = environment();
  told["VMAGENT_STORE"] = "aaaa1111";
  told["VMAGENT_ROW"] = "00000000000000000007";
  const ShimProcess shim(VMAGENT_SHIM, arguments(), told);
  AgentClient(monitor()).bringUp();
  const std::string environ = "/proc/" + std::to_string(shim.pid()) + "/environ";
  const std::string nul(1, '\0');
  EXPECT_THAT(contentOf(environ), HasSubstr("VMAGENT_ROW=00000000000000000007" + nul));
  LineClient host(file("shim.sock"));
  host.line();
  EXPECT_EQ(host.ask(R"({"row":{"store":"bbbb2222","sequence":42}})"), R"({"return":{}})");
  EXPECT_THAT(contentOf(environ), HasSubstr("VMAGENT_STORE=bbbb2222" + nul));
  EXPECT_THAT(contentOf(environ), HasSubstr("VMAGENT_ROW=42" + nul));
  EXPECT_THAT(host.ask(R"({"row":{"store":"ccccc3333","sequence":42}})"),
              HasSubstr("row: there is no room for it"));
  EXPECT_THAT(contentOf(environ), HasSubstr("VMAGENT_STORE=bbbb2222" + nul));
}

TEST_F(ShimAdoption, CanComeAgainAndAgain) {
  const pid_t qemu = orphan();
  for (int i = 0; i < 4; ++i) {
    DaemonProcess& next = daemon();
    AgentClient agent(monitor());
    agent.bringUp();
    EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
    next.kill();
    EXPECT_TRUE(fakes::becomesReadable(shims.back().number()))
        << "the stand-in outlives its daemon";
  }
  EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
}

TEST_F(ShimAdoption, TellsTheNewDaemonOfTheGuestsEnd) {
  orphan();
  DaemonProcess& second = daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  const rt::Descriptor terminal = openTerminal(agent.console());
  readUntil(terminal, "BOOTSECTOR READY\r\n");
  ASSERT_EQ(write(terminal.number(), "\x04", 1), 1);
  EXPECT_EQ(exited(second.shimStatus()), 0);
  expectNothingLeft();
  EXPECT_EQ(modeOf(monitor()), -1);
  EXPECT_EQ(modeOf(file("shim.sock")), -1);
}

TEST_F(ShimAdoption, TellsTheNewDaemonOfTheSignalThatEndedTheGuest) {
  const pid_t qemu = orphan();
  DaemonProcess& second = daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(qemu, SIGKILL));
  EXPECT_EQ(signaled(second.shimStatus()), SIGKILL);
  EXPECT_EQ(agent.line(), "");
  expectNothingLeft();
}

TEST_F(ShimAdoption, PassesTheSignalToEndOn) {
  orphan();
  DaemonProcess& second = daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(second.shim(), SIGTERM));
  EXPECT_EQ(exited(second.shimStatus()), 0);
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("power button")));
  EXPECT_THAT(
      contentOf(file("last-error")),
      HasSubstr("ended by signal 15 to its shim, from process " + std::to_string(getpid())));
  expectNothingLeft();
}

TEST_F(ShimAdoption, KeepsAnOrderlyStopOrderly) {
  orphan();
  DaemonProcess& second = daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0.3}})");
  EXPECT_EQ(exited(second.shimStatus()), 0);
  EXPECT_THAT(contentOf(file("shim.log")), HasSubstr("power button"));
  expectNothingLeft();
}

TEST_F(ShimAdoption, LeavesAGuestWithoutADaemonToBeStopped) {
  orphan();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0}})");
  EXPECT_EQ(host.line(), "{\"end\":{\"exit\":0}}");
  expectNothingLeft();
}

TEST_F(ShimAdoption, IsRefusedForADaemonBesideOneThatLives) {
  DaemonProcess& first = daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  DaemonProcess& second = daemon();
  EXPECT_EQ(exited(second.shimStatus()), 1);
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_EQ(keeper(), first.shim());
}

TEST_F(ShimAdoption, OfAStoppingGuestWaitsForItsEndAndStartsAfresh) {
  const pid_t qemu = orphan();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0.5}})");
  const DaemonProcess& second = daemon();
  EXPECT_EQ(host.line(), "{\"end\":{\"exit\":0}}");
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(Not(qemu)));
  EXPECT_EQ(keeper(), second.shim());
}

TEST_F(ShimAdoption, SaysWhatOnlyARestartWouldChange) {
  orphan(1);
  auto words = arguments(2);
  *(std::find(words.begin(), words.end(), "-m") + 1) = "48";
  const DaemonProcess& second = daemon(words);
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.attach(1, STDERR_FILENO)[2], HasSubstr("the guest has no card 'net1'"));
  EXPECT_TRUE(comesToHold(file("problem"),
                          "restart needed: memory was changed; restart needed: the guest has no "
                          "card with MAC address 52:54:00:12:34:57"));
  LineClient host(file("shim.sock"));
  host.line();
  EXPECT_THAT(host.ask(R"({"status":{}})"), HasSubstr("restart needed: memory was changed"));
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_NE(keeper(), second.shim());
}

// Who is killed, in order: the stand-in, the shim, QEMU.
enum class Victim { standIn, shim, qemu };

class ShimKilled : public ShimAdoption,
                   public testing::WithParamInterface<std::pair<Victim, Victim>> {};

TEST_P(ShimKilled, LeavesNothingAndLetsTheNextStart) {
  const pid_t qemu = orphan();
  DaemonProcess& second = daemon();
  AgentClient(monitor()).bringUp();
  const std::map<Victim, pid_t> pids{
      {Victim::standIn, second.shim()}, {Victim::shim, keeper()}, {Victim::qemu, qemu}};
  ASSERT_NE(pids.at(Victim::shim), pids.at(Victim::standIn));
  // The second may be gone already.
  EXPECT_TRUE(fakes::signalProcess(pids.at(GetParam().first), SIGKILL));
  fakes::signalProcess(pids.at(GetParam().second), SIGKILL);
  // Whatever was killed first, the daemon learns of it by its child.
  EXPECT_EQ(signaled(second.shimStatus()), SIGKILL);
  expectNothingLeft();
  daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(Not(qemu)));
}

std::string nameOf(const testing::TestParamInfo<std::pair<Victim, Victim>>& info) {
  const char* const names[] = {"TheStandIn", "TheShim", "Qemu"};
  return std::string(names[static_cast<size_t>(info.param.first)]) + "Then" +
         names[static_cast<size_t>(info.param.second)];
}

INSTANTIATE_TEST_SUITE_P(InEachOrder, ShimKilled,
                         testing::Values(std::pair(Victim::standIn, Victim::shim),
                                         std::pair(Victim::standIn, Victim::qemu),
                                         std::pair(Victim::shim, Victim::standIn),
                                         std::pair(Victim::shim, Victim::qemu),
                                         std::pair(Victim::qemu, Victim::standIn),
                                         std::pair(Victim::qemu, Victim::shim)),
                         nameOf);

TEST_F(ShimAdoption, EndsAGuestWhoseStandInIsKilledWhileTheDaemonLives) {
  const pid_t qemu = orphan();
  DaemonProcess& second = daemon();
  AgentClient(monitor()).bringUp();
  EXPECT_TRUE(fakes::signalProcess(second.shim(), SIGKILL));
  EXPECT_EQ(signaled(second.shimStatus()), SIGKILL);
  EXPECT_TRUE(fakes::ends(qemu));
  EXPECT_THAT(contentOf(file("shim.log")), HasSubstr("ends the guest, whose daemon has lost it"));
  expectNothingLeft();
}

TEST_F(ShimAdoption, IsGivenUpForAShimThatStandsStillAndComesLater) {
  const pid_t qemu = orphan();
  const pid_t shim = keeper();
  EXPECT_TRUE(fakes::signalProcess(shim, SIGSTOP));
  DaemonProcess& second = daemon();
  EXPECT_EQ(exited(second.shimStatus()), 1);
  EXPECT_THAT(contentOf(file("last-error")),
              HasSubstr("(its shim does not answer): end that process first"));
  EXPECT_TRUE(fakes::signalProcess(shim, SIGCONT));
  // It hears of those that gave up, and then of this one.
  daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
  EXPECT_EQ(modeOf(file("last-error")), -1);
}

TEST_F(ShimAdoption, IsNotAskedOfAShimOfAnotherVersion) {
  std::filesystem::create_directories(folder / "vm/guest0");
  VmLock lock(file("lock"));
  ASSERT_TRUE(lock.takeKeeping());
  ListeningSocket socket(file("shim.sock"), "control");
  fakes::ShimProcess shim(VMAGENT_SHIM, arguments(), environment());
  ASSERT_TRUE(fakes::becomesReadable(socket.number()));
  const rt::Descriptor client = socket.accept();
  const std::string greeting = R"({"shim":2,"vm":"guest0","pid":77,"qemu":78,"state":"running"})";
  ASSERT_GT(write(client.number(), (greeting + "\n").c_str(), greeting.size() + 1), 0);
  EXPECT_EQ(exited(shim.wait()), 1);
  EXPECT_EQ(shim.errors(),
            "vmagent-shim: VM 'guest0' runs already, kept by process 77, which is of another "
            "version (2 and not 1): end that process first, with 'kill 77'\n");
}

TEST_F(ShimAdoption, OutlivesTwentyDaemonsThatAreKilledAtOnce) {
  const pid_t qemu = orphan();
  for (int i = 0; i < 20; ++i) daemon().kill();
  daemon();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"))
      << contentOf(file("shim.log"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
}

// Cards.

class ShimAdoptionCards : public ShimAdoption {
 protected:
  ShimAdoptionCards() {
    Vm::fakes::ip("link add low0 type veth peer name peer0");
    Vm::fakes::ip("link set low0 up");
  }
  ~ShimAdoptionCards() override { Vm::fakes::ip("link del low0"); }

  rt::fakes::TraceRecorder traces;
};

TEST_F(ShimAdoptionCards, AreFreeForTheNewAgent) {
  DaemonProcess& first = daemon(2);
  const char mac[] = "\x52\x54\x00\x12\x34\x56";
  const rt::Descriptor tap(
      netlink::setupMacvtap("low0", mac, [] { Vm::fakes::makeTapNode("macvtap0"); }).fd);
  ASSERT_TRUE(tap);
  {
    AgentClient agent(monitor());
    agent.bringUp();
    EXPECT_THAT(agent.attach(0, tap.number()), testing::Each(HasSubstr(R"("return": {})")));
  }
  first.kill();
  daemon(2);
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.attach(0, tap.number()), testing::Each(HasSubstr(R"("return": {})")));
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("problem")));
  EXPECT_EQ(modeOf(file("problem")), -1);
}

}  // namespace
}  // namespace shim
