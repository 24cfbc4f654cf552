// What is shown and told of guests' cards as their interfaces' lines come and go.
#include "host/fakes/FakeShims.h"
#include "host/fakes/HostCardsWorld.h"
#include "host/network/CardStatus.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CardStatusTest : public testing::Test, protected HostCardsWorld {
 protected:
  CardStatusTest() {
    for (const char* const name : {"web1", "web2"})
      tellers.push_back(rt::make<CardTeller>(name, vm(name), *cardStatus));
    line("Ethernet1", true);
    line("Ethernet2", true);
  }

  host::CardStatus::Ptr made() {
    return rt::make<host::CardStatus>(
        host::CardStatus::Tools{
            .agent = root,
            .status = hostStatus,
            .problems = problems,
            .shims = shims,
            .cards = *healer,
            .keyOf = [](const auto&, rt::EthAddr mac) { return keyOf(mac); },
            .followsLink = [this](const rt::String& vm) { return !independent.contains(vm); },
            .now = [this] { return wallTime; },
            .trouble = [this](const auto& vm,
                              const host::CardTrouble& card) { troubles[vm] = card; },
            .tell =
                [this](const model::Event::Ptr& event) {
                  events.push_back((event->vm() + " " + event->kind() + " " + event->reason() +
                                    " " + event->severity() + " " + event->subject() + " | " +
                                    event->text())
                                       .str());
                }},
        before, clock);
  }
  static rt::String keyOf(rt::EthAddr mac) {
    if (mac.text() == firstMac) return "nic00";
    return mac.text() == secondMac ? "nic00" : "";
  }

  // The kernel has the interface's device, with a carrier or without.
  void line(const char* interface, bool hasCarrier) {
    const auto row = hostStatus->interfaceStatusIs(interface);
    row->presentIs(true);
    row->carrierIs(hasCarrier);
    cardStatus->interfaceIs(interface);
  }
  void loseFirst() {
    locked([&] { interfaceDel("Ethernet1", firstPort); });
    hostStatus->interfaceStatusDel("Ethernet1");
    cardStatus->interfaceIs("Ethernet1");
  }
  void look() {
    locked([&] { cardStatus->pass(); });
  }
  void runFirst() {
    run(web1);
    pass(1);
    look();
  }
  // "INTERFACE TAP LINK TIME"; empty: there is none.
  std::string shown(const char* key) const {
    const auto row = hostStatus->vmCard(key);
    if (!row) return "";
    return (row->interface() + " " + row->tap() + " " + row->link()).str() + " " +
           std::to_string(row->since());
  }
  std::vector<std::string> told() { return std::exchange(shims.lines, {}); }
  std::vector<std::string> happened() { return std::exchange(events, {}); }

  uint64_t wallTime = 100;
  std::map<rt::String, host::CardStatus::Before> before;
  std::set<rt::String> independent;  // VMs whose guests are to see nothing of it
  std::map<rt::String, host::CardTrouble> troubles;
  std::vector<std::string> events;
  std::vector<std::string> asks;
  host::fakes::FakeShims shims{asks};
  host::CardStatus::Ptr cardStatus = made();
  std::vector<rt::Ptr<CardTeller>> tellers;
};

TEST_F(CardStatusTest, ShowsACardOfAGuestFromItsStartToItsEnd) {
  EXPECT_EQ(shown("web1/nic00"), "");
  locked([&] { web1->enabledIs(true); });
  look();
  EXPECT_EQ(shown("web1/nic00"), "Ethernet1  none 100");
  converse("web1");
  wallTime = 101;
  look();
  EXPECT_EQ(shown("web1/nic00"), "Ethernet1 macvtap0 up 101");
  EXPECT_EQ(shown("web2/nic00"), "") << "it does not run";
  switchOff(web1);
  processes.end(1000);
  turn();
  look();
  EXPECT_EQ(shown("web1/nic00"), "");
}

TEST_F(CardStatusTest, ShowsWhetherItsInterfaceHasACarrierOrIsNotThere) {
  runFirst();
  wallTime = 200;
  line("Ethernet1", false);
  look();
  EXPECT_EQ(shown("web1/nic00"), "Ethernet1 macvtap0 noCarrier 200");
  wallTime = 300;
  look();
  loseFirst();
  look();
  EXPECT_EQ(shown("web1/nic00"), "Ethernet1 macvtap0 gone 300");
}

TEST_F(CardStatusTest, CallsACardThatNoRowHasByItsAddress) {
  addCard(web1, "nic07", "52:54:00:12:34:07", "Ethernet2");
  runFirst();
  EXPECT_EQ(shown("web1/52:54:00:12:34:07"), "Ethernet2 macvtap1 up 100");
}

TEST_F(CardStatusTest, MakesALineThatIsMissingAProblemUntilItIsBack) {
  runFirst();
  EXPECT_EQ(problem("web1"), "");
  wallTime = 200;
  line("Ethernet1", false);
  look();
  EXPECT_EQ(problem("web1"), "line: nic00: Ethernet1 has no carrier");
  EXPECT_EQ(troubles["web1"], (host::CardTrouble{"nic00", "Ethernet1", false, 200}));
  wallTime = 210;
  line("Ethernet1", true);
  look();
  EXPECT_EQ(problem("web1"), "");
  loseFirst();
  look();
  EXPECT_EQ(problem("web1"), "line: nic00: there is no Ethernet1");
  EXPECT_EQ(troubles["web1"], (host::CardTrouble{"nic00", "Ethernet1", true, 210}));
}

TEST_F(CardStatusTest, MakesNoProblemOfAGuestThatHasEnded) {
  runFirst();
  line("Ethernet1", false);
  look();
  switchOff(web1);
  processes.end(1000);
  turn();
  look();
  EXPECT_EQ(problem("web1"), "");
  EXPECT_THAT(std::vector(events.begin() + 1, events.end()), IsEmpty());
}

TEST_F(CardStatusTest, NamesACardWhoseInterfaceIsGoneBeforeOneWithoutACarrier) {
  addCard(web1, "nic07", "52:54:00:12:34:07", "Ethernet2");
  runFirst();
  line("Ethernet2", false);
  look();
  EXPECT_EQ(problem("web1"), "line: 52:54:00:12:34:07: Ethernet2 has no carrier");
  line("Ethernet1", false);
  look();
  EXPECT_EQ(problem("web1"), "line: 52:54:00:12:34:07: Ethernet2 has no carrier")
      << "the first by its key";
  loseFirst();
  look();
  EXPECT_EQ(problem("web1"), "line: nic00: there is no Ethernet1");
}

TEST_F(CardStatusTest, TellsOfEachChangeOnceAndOfItsEndWhenTheCardIsAttached) {
  runFirst();
  EXPECT_THAT(happened(), IsEmpty());
  line("Ethernet1", false);
  look();
  cardStatus->changed("web1");
  look();
  EXPECT_THAT(happened(),
              ElementsAre("web1 card no-carrier bad nic00 | nic00: Ethernet1 has no carrier"));
  loseFirst();
  look();
  EXPECT_THAT(happened(), ElementsAre("web1 card gone bad nic00 | nic00: there is no Ethernet1"));
  converse("web1");
  locked([&] { interfaceIs("Ethernet1", firstPort); });
  line("Ethernet1", true);
  look();
  EXPECT_THAT(happened(), IsEmpty()) << "QEMU has not said yet that it has it";
  pass(1);
  look();
  EXPECT_THAT(happened(), ElementsAre("web1 card back ok nic00 | nic00: Ethernet1 is back"));
}

TEST_F(CardStatusTest, GoesOnFromWhatAnEarlierDaemonSaw) {
  before = {{"web1/nic00", {"noCarrier", 7}}, {"web2/nic00", {"up", 8}}};
  cardStatus = made();
  tellers = {rt::make<CardTeller>("web1", vm("web1"), *cardStatus),
             rt::make<CardTeller>("web2", vm("web2"), *cardStatus)};
  line("Ethernet1", false);
  locked([&] { web2->enabledIs(true); });
  look();
  EXPECT_EQ(shown("web2/nic00"), "Ethernet2  none 100");
  converse("web2");
  runFirst();
  EXPECT_EQ(shown("web1/nic00"), "Ethernet1 macvtap1 noCarrier 7");
  EXPECT_EQ(shown("web2/nic00"), "Ethernet2 macvtap0 up 8");
  EXPECT_THAT(happened(), IsEmpty());
  line("Ethernet1", true);
  look();
  EXPECT_THAT(happened(), ElementsAre("web1 card back ok nic00 | nic00: Ethernet1 is back"));
}

// What the guest sees.

TEST_F(CardStatusTest, TellsTheGuestOfItsLineOnceForEachChange) {
  runFirst();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 up"));
  line("Ethernet1", false);
  look();
  cardStatus->changed("web1");
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 down"));
  line("Ethernet1", true);
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 up"));
}

TEST_F(CardStatusTest, KeepsTheLineDownWhileTheInterfaceIsGone) {
  runFirst();
  told();
  loseFirst();
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 down"));
}

TEST_F(CardStatusTest, LeavesTheLineUpWhereThePolicySaysSo) {
  independent = {"web1"};
  runFirst();
  told();
  line("Ethernet1", false);
  look();
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(problem("web1"), "line: nic00: Ethernet1 has no carrier");
  independent = {};
  cardStatus->policyIs("web1");
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 down"));
}

TEST_F(CardStatusTest, TellsAShimLaterThatCannotBeToldNow) {
  runFirst();
  told();
  shims.gone = {"web1"};
  line("Ethernet1", false);
  look();
  advance(0.9);
  shims.gone = {};
  look();
  EXPECT_THAT(told(), IsEmpty());
  advance(0.2);
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 down"));
  advance(1000);
  look();
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(CardStatusTest, TellsTheNextGuestAnew) {
  runFirst();
  told();
  switchOff(web1);
  processes.end(1000);
  turn();
  run(web1);
  look();
  EXPECT_THAT(told(), ElementsAre("web1 52:54:00:12:34:01 up"));
}

TEST_F(CardStatusTest, SetsNothingOnTheClockWhereAllIsTold) {
  runFirst();
  line("Ethernet1", false);
  look();
  const auto before = clock->nextWakeUpTime();
  cardStatus = nullptr;
  EXPECT_EQ(clock->nextWakeUpTime(), before);
}

}  // namespace
}  // namespace Vm::fakes
