// A shim whose daemon listens already at the monitor's path, and hands it that socket: the agent
// finds somebody the first time it looks, and is never left to look again.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <filesystem>

#include "shim/fakes/AdoptionWorld.h"
#include "shim/keep/VmDirectory.h"
#include "shim/keep/Wire.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::becomesReadable;
using fakes::exited;
using fakes::queryStatus;
using fakes::ShimProcess;
using fakes::signaled;
using rt::fakes::contentOf;
using rt::fakes::modeOf;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

class ShimListener : public fakes::AdoptionWorld {
 protected:
  // A daemon listens, and its agent has connected, before the shim is started.
  void listen() {
    std::filesystem::remove(monitor());
    handed = fakes::listenerAt(monitor());
    agent = std::make_unique<AgentClient>(monitor());
  }
  std::unique_ptr<ShimProcess> startListening(const std::string& qemu = fakes::realQemu) {
    auto told = environment(qemu);
    told["VMAGENT_LISTENER"] = std::to_string(handed.number());
    auto shim = std::make_unique<ShimProcess>(VMAGENT_SHIM, arguments(), told);
    handed.reset();
    return shim;
  }
  void expectHungUp() const {
    EXPECT_TRUE(becomesReadable(agent->socket().number()));
    EXPECT_EQ(agent->line(), "");
  }
  // An agent that lost its connection first would look for its QEMU for ten seconds.
  void expectHungUpAfterTheEndOf(const ShimProcess& shim) const {
    expectHungUp();
    EXPECT_TRUE(becomesReadable(shim.pipe().number(), 0));
  }
  ino_t monitorsFile() const {
    struct stat found {};
    return lstat(monitor().c_str(), &found) == 0 ? found.st_ino : 0;
  }

  rt::Descriptor handed;
  std::unique_ptr<AgentClient> agent;
};

TEST_F(ShimListener, ServesTheAgentThatConnectedBeforeItWasStarted) {
  listen();
  const ino_t file = monitorsFile();
  const auto shim = startListening();
  agent->bringUp();
  EXPECT_THAT(agent->ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_EQ(monitorsFile(), file);
  shim->signal(SIGTERM);
  EXPECT_EQ(exited(shim->wait()), 0);
  EXPECT_EQ(monitorsFile(), file) << "the daemon has it still, and removes it";
}

TEST_F(ShimListener, OfADaemonThatIsGoneIsRemovedWithTheGuest) {
  orphan();
  EXPECT_NE(monitorsFile(), 0U);
  EXPECT_TRUE(fakes::signalProcess(keeper(), SIGTERM));
  expectNothingLeft();
  EXPECT_EQ(modeOf(monitor()), -1);
}

TEST_F(ShimListener, ServesAnAgentThatComesAgain) {
  listen();
  const auto shim = startListening();
  agent->bringUp();
  agent = std::make_unique<AgentClient>(monitor());
  EXPECT_THAT(agent->line(), StartsWith(R"({"QMP": )"));
}

TEST_F(ShimListener, OfAQemuThatFailsAtOnceHangsUpAfterItsEnd) {
  listen();
  const auto shim = startListening(script("exit 3"));
  expectHungUpAfterTheEndOf(*shim);
  EXPECT_EQ(exited(shim->wait()), 3);
}

TEST_F(ShimListener, OfAQemuThatCannotBeRunHangsUpAfterItsEnd) {
  listen();
  const auto shim = startListening("/nowhere/qemu");
  expectHungUpAfterTheEndOf(*shim);
  EXPECT_EQ(exited(shim->wait()), 127);
}

TEST_F(ShimListener, OfAShimThatIsRefusedHangsUpAfterItsEnd) {
  const auto first = start();
  AgentClient its(monitor());
  its.bringUp();
  listen();
  const auto second = startListening();
  expectHungUpAfterTheEndOf(*second);
  EXPECT_EQ(exited(second->wait()), 1);
  EXPECT_THAT(its.ask(queryStatus), HasSubstr(R"("running": true)"));
}

TEST_F(ShimListener, OfAShimThatCannotKeepItsGuestHangsUpAfterItsEnd) {
  std::filesystem::create_directories(file("shim.sock"));
  for (int i = 0; i < 20; ++i) {  // in the other order there is little time between
    listen();
    const auto shim = startListening();
    expectHungUpAfterTheEndOf(*shim);
    EXPECT_EQ(exited(shim->wait()), 1);
  }
  EXPECT_THAT(contentOf(file("last-error")), HasSubstr("shim.sock is taken by what is no socket"));
}

TEST_F(ShimListener, OfAShimThatIsKilledHangsUp) {
  listen();
  const auto shim = startListening();
  shim->signal(SIGKILL);
  expectHungUp();
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
}

TEST_F(ShimListener, ThatIsNoneIsReplacedByOneOfTheShimsOwn) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const rt::Descriptor reading(ends[0]);
  const rt::Descriptor writing(ends[1]);
  for (const int number : {writing.number(), 77}) {
    auto told = environment();
    told["VMAGENT_LISTENER"] = std::to_string(number);
    const ShimProcess shim(VMAGENT_SHIM, arguments(), told);
    AgentClient(monitor()).bringUp();
    EXPECT_EQ(modeOf(monitor()), 0600) << number;
  }
}

// Adoption.

TEST_F(ShimListener, IsHandedOnToTheShimThatKeepsTheGuest) {
  orphan();
  daemon();
  const ino_t file = monitorsFile();
  AgentClient next(monitor());
  next.bringUp();
  EXPECT_THAT(next.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_NE(file, 0U);
  EXPECT_EQ(monitorsFile(), file);
}

TEST_F(ShimListener, OfAnEarlierDaemonIsLetGoOf) {
  orphan();
  const std::string earlier = folder / "earlier";
  std::filesystem::rename(monitor(), earlier);
  ASSERT_TRUE(connectionTo(earlier));
  daemon();
  AgentClient(monitor()).bringUp();
  EXPECT_FALSE(connectionTo(earlier));
}

TEST_F(ShimListener, OfADaemonThatHasNoneIsTheKeepersOwn) {
  orphan();
  listener = fakes::Listener::none;
  daemon();
  AgentClient next(monitor());
  next.bringUp();
  EXPECT_THAT(next.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_EQ(modeOf(monitor()), 0600);
}

// A daemon is killed, and the next one's listener stands there, before the first one's shim looks:
// what it takes for its own is what it is handed later.
TEST_F(ShimListener, OutlivesTheTurnOfAShimThatCameLate) {
  const std::string late = script("read line <\"$GATE\"\nexec " VMAGENT_SHIM " \"$@\"");
  const auto startGated = [&](const std::string& gate) {
    EXPECT_EQ(mkfifo(gate.c_str(), 0600), 0);
    auto told = environment();
    told["GATE"] = gate;
    daemons.push_back(std::make_unique<fakes::DaemonProcess>(late, arguments(), told, monitor()));
    shims.emplace_back(static_cast<int>(syscall(SYS_pidfd_open, daemons.back()->shim(), 0)));
  };
  const auto open = [](const std::string& gate) { std::ofstream(gate) << "go\n"; };
  startGated(folder / "first");
  daemons.back()->kill();
  startGated(folder / "second");
  const ino_t inPlace = monitorsFile();
  open(folder / "first");
  ASSERT_TRUE(fakes::comesToHold(file("shim.log"), "started as"));
  open(folder / "second");
  ASSERT_TRUE(fakes::comesToHold(file("shim.log"), "stands in for it"));
  EXPECT_EQ(monitorsFile(), inPlace);
  AgentClient next(monitor());
  next.bringUp();
  EXPECT_THAT(next.ask(queryStatus), HasSubstr(R"("running": true)"));
}

TEST_F(ShimListener, ThatIsNoneRefusesAnAdoption) {
  orphan();
  Wire wire(connectionTo(file("shim.sock")), 1 << 20);
  const std::string self = std::to_string(getpid());
  Message request{R"({"adopt":{"pid":)" + self + R"(,"daemon":)" + self +
                      R"(,"arguments":["-name","guest0","-chardev","socket,id=monitor,path=)" +
                      monitor() + "\"]}}\n",
                  {}};
  for (int i = 0; i < 2; ++i)
    request.descriptors.emplace_back(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
  wire.send(std::move(request));
  std::string heard;
  while (heard.find("error") == std::string::npos && !wire.isClosed() &&
         becomesReadable(wire.number()))
    for (const Message& message : wire.receive()) heard += message.text;
  EXPECT_THAT(heard, HasSubstr("adopt: the second descriptor must be of a socket that listens"));
}

// A shim that keeps the guest, played: by what it hands back it may be an older one.
class ShimListenerPlayed : public ShimListener {
 protected:
  ShimListenerPlayed() {
    std::filesystem::create_directories(folder / "vm/guest0");
    lock = std::make_unique<VmLock>(file("lock"));
    EXPECT_TRUE(lock->takeKeeping());
    socket = std::make_unique<ListeningSocket>(file("shim.sock"), "control");
    listen();
    kept = copyOf(handed);
    standIn = startListening();
    EXPECT_TRUE(becomesReadable(socket->number()));
    wire = std::make_unique<Wire>(socket->accept(), 1 << 20);
    say(R"({"shim":1,"vm":"guest0","pid":77,"qemu":78,"state":"running"})");
    adoption = next();
  }

  void say(const std::string& line, rt::Descriptors descriptors = {}) const {
    wire->send({line + "\n", std::move(descriptors)});
  }
  Message next() {
    while (heard.empty() && !wire->isClosed() && becomesReadable(wire->number()))
      for (Message& message : wire->receive()) heard.push_back(std::move(message));
    if (heard.empty()) return {};
    Message first = std::move(heard.front());
    heard.erase(heard.begin());
    return first;
  }

  std::unique_ptr<VmLock> lock;
  rt::Descriptor kept;  // by the daemon, until it knows of the stand-in's end
  std::unique_ptr<ListeningSocket> socket;
  std::unique_ptr<ShimProcess> standIn;
  std::unique_ptr<Wire> wire;
  std::vector<Message> heard;
  Message adoption;
};

TEST_F(ShimListenerPlayed, IsLetGoOfForAShimThatHandsNothingBack) {
  ASSERT_THAT(adoption.descriptors, SizeIs(2));
  adoption.descriptors.clear();
  say(R"({"return":{}})");
  expectHungUp();  // and the agent finds that shim's own socket
  say(R"({"end":{"exit":0}})");
  EXPECT_EQ(exited(standIn->wait()), 0);
}

TEST_F(ShimListenerPlayed, StaysWithTheStandInThoughTheGuestIsToldToEnd) {
  ASSERT_THAT(adoption.descriptors, SizeIs(2));
  rt::Descriptors back;
  back.push_back(std::move(adoption.descriptors.back()));
  say(R"({"return":{}})", std::move(back));
  adoption.descriptors.clear();
  for (int i = 0; i < 2; ++i) {
    standIn->signal(SIGTERM);
    EXPECT_THAT(next().text, StartsWith(R"({"stop":)"));
    say(R"({"return":{}})");
  }
  // It has nothing else that listens there.
  EXPECT_TRUE(connectionTo(monitor()));
  say(R"({"end":{"exit":0}})");
  kept.reset();
  expectHungUpAfterTheEndOf(*standIn);
  EXPECT_EQ(exited(standIn->wait()), 0);
}

}  // namespace
}  // namespace shim
