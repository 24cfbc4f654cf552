// Guests whose QEMU misbehaves at its monitor, beside others whose does not: in real time, on real
// processes and sockets, and with the module as a host loads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/TraceRecorder.h"
#include "tests/system/ModuleWorld.h"
#include "tests/system/PrivateMounts.h"

namespace Vm {

using Texts = std::vector<std::string>;

namespace troubleTest {

// When one attribute of an entity changed, on the loop's clock, and what it was then.
class Stamps final : public rt::StateMachineOf<Stamps> {
 public:
  struct Stamp {
    double time;
    std::string value;
  };

  Stamps(const rt::Ptr<const rt::Entity>& entity, std::string attribute)
      : attribute_(std::move(attribute)), entity_(*this, entity) {}

  const std::vector<Stamp>& stamps() const { return stamps_; }
  Texts values() const {
    Texts all;
    for (const auto& stamp : stamps_) all.push_back(stamp.value);
    return all;
  }
  // Of the last change before `time`.
  double lastBefore(double time) const {
    double last = 0;
    for (const auto& stamp : stamps_)
      if (stamp.time < time) last = stamp.time;
    return last;
  }

  static constexpr std::string_view typeName = "Vm::troubleTest::Stamps";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Stamps::initialized>>;

 private:
  void handleChange(const rt::Entity& entity, const rt::Change& change) {
    const auto& attribute = entity.type().attributes[change.attribute];
    if (attribute.name != attribute_) return;
    stamps_.push_back({rt::currentTime().value(), attribute.text(entity).str()});
  }

  const std::string attribute_;
  std::vector<Stamp> stamps_;
  rt::AnyReactor<Stamps, &Stamps::handleChange> entity_;
};

}  // namespace troubleTest

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using troubleTest::Stamps;

// The agent asks for the run state this long after it did, and waits this long for any reply.
constexpr double pollInterval = 5;
constexpr double replyTimeout = 5;
// What a busy machine may add to anything. Whoever waits for a reply within a handler is later.
constexpr double slack = 4;
// Clocks count in doubles.
constexpr double rounding = 1e-6;

constexpr const char* capabilities = "0 { \"execute\": \"qmp_capabilities\",\"id\": \"enter\" }";
constexpr const char* queryStatus = "0 { \"execute\": \"query-status\",\"id\": \"status\" }";
constexpr const char* queryChardev = "0 { \"execute\": \"query-chardev\",\"id\": \"chardev\" }";
constexpr const char* cont = "0 { \"execute\": \"cont\",\"id\": \"cont\" }";

class MonitorTrouble : public testing::Test, public fakes::ModuleWorld {
 protected:
  MonitorTrouble() : ModuleWorld(rt::make<rt::SteadyClock>()) {
    // The guests too, before whatever else the machine does: a process must be let end within the
    // few milliseconds that the loop gives it.
    setpriority(PRIO_PROCESS, 0, -20);
    start();
  }

  // Switches a VM on. How long that kept the loop.
  double switchOn(const VmConfig::Ptr& added) const {
    const double begin = rt::currentTime().value();
    added->enabledIs(true);
    return rt::currentTime().value() - begin;
  }
  rt::Ptr<Stamps> states(const std::string& name) const {
    return rt::make<Stamps>(vmStatus(name), "state");
  }
  static Texts askedOf(const std::string& name) {
    Texts texts;
    for (const auto& request : fakes::requestsOf(name)) texts.push_back(request.text);
    return texts;
  }
  // When its QEMU was asked for its run state: at the start of a session, then at each poll.
  static std::vector<double> pollsOf(const std::string& name) {
    std::vector<double> times;
    for (const auto& request : fakes::requestsOf(name))
      if (request.text == queryStatus) times.push_back(request.time);
    return times;
  }
  // No poll of that VM came later after the one before than the interval and what the agent itself
  // was blocked for, which is `blocked`.
  static void expectPolledInTime(const std::string& name, size_t polls, double blocked) {
    const auto times = pollsOf(name);
    ASSERT_GE(times.size(), polls + 1) << name;
    for (size_t i = 1; i < times.size(); ++i)
      EXPECT_LE(times[i] - times[i - 1], pollInterval + blocked + slack) << name << ", poll " << i;
  }
  static bool isThere(int pid) { return fs::exists("/proc/" + std::to_string(pid)); }

  rt::fakes::TraceRecorder traces;
};

// Seven kinds of trouble and two VMs without, started one after the other; then two polls.
class TroubleSideBySide : public MonitorTrouble {
 protected:
  // Asked as often as a VM is from its start to its first poll: four times, and once.
  static constexpr const char* untilFirstPoll = "monitor\ntake 5\n";

  void switchOn(const std::string& name, const std::string& script) {
    const auto added = addVm(name, script);
    states_[name] = states(name);
    MonitorTrouble::switchOn(added);
  }
  void switchAllOn() {
    const std::string first = untilFirstPoll;
    switchOn("silent", first + "leave query-status\nserve 0\n");
    switchOn("good1", "");
    switchOn("refusing", first + "refuse query-status\nserve 0\n");
    switchOn("closing", first + "close\nserve 0\n");
    switchOn("away", first + "unlisten\nclose\nsleep 500\nmonitor\nserve 0\n");
    switchOn("bytewise", "monitor\npieces 1 1\nserve 0\n");
    switchOn("killed", "");
    switchOn("held", "monitor\ntake 4\nhold 6000\nsignal 9\n");
    switchOn("good2", "");
  }
  Texts statesOf(const std::string& name) const { return states_.at(name)->values(); }
  ChildProcess::Ptr child(const std::string& name) const { return vm(name)->qemuChildProcess(); }

  // One dies with its monitor open, which is never taken for one that is to be connected again.
  void expectDeathIsNoLoss(const ChildProcess::Ptr& killed) {
    ASSERT_TRUE(waitForAnswers("killed"));
    traces.take();
    fakes::signalProcess(killed->pid(), SIGKILL);
    ASSERT_TRUE(waitForEnd("killed"));
    EXPECT_EQ(killed->exitSignal(), SIGKILL);
    ASSERT_TRUE(waitFor([&] { return vm("killed")->monSm() == nullptr; }));
    EXPECT_EQ(vmStatus("killed")->state(), "Stopped");
    EXPECT_THAT(traces.take(8),
                Not(Contains(HasSubstr("Trying to connect to /var/run/killed.monitor"))));
  }
  // One dies while another process holds its connection: the death is told all the same, and the
  // session goes with that process.
  void expectDeathIsSeenBeforeItsMonitorCloses(const ChildProcess::Ptr& held) {
    ASSERT_TRUE(waitForEnd("held"));
    EXPECT_EQ(held->exitSignal(), SIGKILL);
    EXPECT_EQ(vmStatus("held")->state(), "Stopped");
    EXPECT_EQ(vmStatus("held")->consolePtyPath(), "pty:/dev/pts/9");
    EXPECT_NE(vm("held")->monSm(), nullptr);
    ASSERT_TRUE(waitFor([&] { return vm("held")->monSm() == nullptr; }));
    EXPECT_TRUE(vmStatus("held")->consolePtyPath().empty());
    EXPECT_EQ(vmStatus("held")->state(), "Stopped");
  }
  // The time-out shows in the state, which is empty, five seconds after the request was sent.
  void expectTimeOut(const Stamps& requests, double blocked) const {
    EXPECT_THAT(statesOf("silent"), ElementsAre("Starting", "Stopped", "Running", ""));
    const double failed = states_.at("silent")->stamps().back().time;
    const double sent = requests.lastBefore(failed);
    EXPECT_GE(failed - sent, replyTimeout - rounding);
    EXPECT_LE(failed - sent, replyTimeout + blocked + slack);
  }
  // A new session with the same process, which does not tell the guest to run again.
  static void expectReconnected(const std::string& name) {
    const Texts asked = askedOf(name);
    expectBegin(asked, 0, {capabilities, queryStatus, queryChardev, cont, queryStatus});
    expectBegin(asked, 5, {capabilities, queryStatus, queryChardev});
    EXPECT_EQ(std::count(asked.begin(), asked.end(), cont), 1) << name;
  }
  // What was asked, from the `first` on, begins with `session`.
  static void expectBegin(const Texts& asked, size_t first, const Texts& session) {
    ASSERT_GE(asked.size(), first + session.size());
    EXPECT_TRUE(
        std::equal(session.begin(), session.end(), asked.begin() + static_cast<ptrdiff_t>(first)))
        << testing::PrintToString(asked);
  }

  std::map<std::string, rt::Ptr<Stamps>> states_;
};

TEST_F(TroubleSideBySide, IsSeenForWhatItIsAndDelaysNobodyElsesPolls) {
  switchAllOn();
  const auto silentRequests = rt::make<Stamps>(vm("silent")->monSm(), "qmpPendingRequest");
  const auto closing = child("closing");
  const auto held = child("held");
  takeLongestTurn();

  expectDeathIsNoLoss(child("killed"));
  expectDeathIsSeenBeforeItsMonitorCloses(held);
  // Until the silent one's second poll has timed out, and all others were polled twice.
  ASSERT_TRUE(waitFor([&] { return statesOf("silent").back().empty(); }));
  for (const char* name : {"good1", "good2", "refusing", "bytewise"})
    ASSERT_TRUE(waitFor([&] { return pollsOf(name).size() >= 3; })) << name;

  // What blocks the agent is one reconnecting, while nobody listens for half a second.
  const double blocked = takeLongestTurn();
  EXPECT_LE(blocked, 0.5 + slack);
  expectTimeOut(*silentRequests, blocked);
  EXPECT_EQ(child("closing"), closing);
  expectReconnected("closing");
  expectReconnected("away");
  // A refused poll leaves the state as it was; a closed monitor, and one that speaks in single
  // bytes, are no trouble to the guest.
  for (const char* name : {"refusing", "closing", "away", "bytewise", "good1", "good2"})
    EXPECT_THAT(statesOf(name), ElementsAre("Starting", "Stopped", "Running")) << name;
  for (const char* name : {"refusing", "bytewise", "good1", "good2"}) {
    expectBegin(askedOf(name), 0,
                {capabilities, queryStatus, queryChardev, cont, queryStatus, queryStatus});
    expectPolledInTime(name, 2, blocked);
  }
}

TEST_F(MonitorTrouble, OfAMonitorThatComesLateIsOverWhenItComes) {
  const auto late = addVm("late", "sleep 3000\nmonitor\nserve 0\n");
  const double blocked = switchOn(late);
  EXPECT_GE(blocked, 3);
  EXPECT_LE(blocked, 3 + 0.2 + slack);
  EXPECT_THAT(traces.take(1), testing::IsEmpty());
  ASSERT_TRUE(waitForAnswers("late"));
  EXPECT_THAT(askedOf("late"), ElementsAre(capabilities, queryStatus, queryChardev, cont));
}

// 52 attempts and 51 pauses of 200 ms between them, in which the agent does nothing else.
TEST_F(MonitorTrouble, OfAMonitorThatNeverComesEndsAfterTenSecondsWithItsQemu) {
  switchOn(addVm("good"));
  ASSERT_TRUE(waitForAnswers("good"));
  const auto goodStates = states("good");
  const auto never = addVm("never", "sleep 600000\n");

  const double blocked = switchOn(never);
  EXPECT_GE(blocked, 51 * 0.2);
  EXPECT_LE(blocked, 51 * 0.2 + slack);
  const Texts failures = traces.take(1);
  EXPECT_THAT(failures,
              ElementsAre("connectMonitor FAIL: cannot connect to /var/run/never.monitor",
                          "setupMonitor FAIL: cannot connect to qemu monitor ",
                          "doTryEnable FAIL: cannot setup monitor, check if qemu process has died, "
                          "if so check qemu args "));
  const auto child = vm("never")->qemuChildProcess();
  EXPECT_TRUE(vmStatus("never")->enabled());
  EXPECT_EQ(vmStatus("never")->state(), "Starting");
  ASSERT_TRUE(waitForEnd("never"));
  EXPECT_EQ(vmStatus("never")->state(), "Stopped");
  EXPECT_EQ(child->exitSignal(), SIGTERM);
  EXPECT_FALSE(isThere(child->pid()));

  // The other's poll came once the agent was there again, and its answer was taken for one.
  ASSERT_TRUE(waitFor([&] { return vmStatus("good")->state() == "Running"; }));
  expectPolledInTime("good", 1, blocked);
  EXPECT_THAT(goodStates->values(), ElementsAre("Running"));
}

}  // namespace

}  // namespace Vm
