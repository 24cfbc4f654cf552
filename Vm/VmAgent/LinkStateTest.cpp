// Every order of what can happen to a card, against a model of its link.
#include <optional>

#include "Vm/VmAgent/fakes/LinkModel.h"
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

// Notes how a card's status goes.
class StatusWatcher final : public rt::StateMachineOf<StatusWatcher> {
 public:
  StatusWatcher(Vnic::Ptr card, std::set<Transition>& seen)
      : seen_(seen), last_(Vnic::linkUninitialized), card_(*this, std::move(card)) {}

  static constexpr std::string_view typeName = "StatusWatcher";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &StatusWatcher::initialized>>;

 private:
  void handleStatus() {
    seen_.insert({last_, card_->status()});
    last_ = card_->status();
  }

  std::set<Transition>& seen_;
  Vnic::LinkStatus last_;
  rt::Reactor<StatusWatcher, Vnic, rt::On<&Vnic::status, &StatusWatcher::handleStatus>> card_;
};

namespace {

// A world with one VM and one card, to which events happen.
class LinkWorld : public NicWorld {
 public:
  explicit LinkWorld(std::set<Transition>& seen) : seen_(seen) {
    rt::vmTrace().levelsIs(0);  // nobody reads it, a hundred thousand times
    addCard();
    start();
  }
  virtual ~LinkWorld() = default;

  void happen(LinkEvent event) {
    switch (event) {
      case LinkEvent::connect:
        // Also told again of a device that is there.
        if (!std::exchange(present_, true)) return connectVlan100();
        return locked([&] { vmSm()->handleIntfStatusAndDeviceName(); });
      case LinkEvent::disconnect:
        if (std::exchange(present_, false)) return disconnectVlan100();
        return locked([&] { vm()->doDeviceDisconnected("Vlan100"); });
      case LinkEvent::response:
        return answer(/*refuse=*/false);
      case LinkEvent::error:
        return answer(/*refuse=*/true);
      case LinkEvent::timeOut:
        return timeOut();
      case LinkEvent::disable:
        watcher_ = nullptr;  // it holds the card
        disable();
        for (const int32_t pid : processes.living()) processes.end(pid);
        return turn();
      case LinkEvent::enable:
        if (web1->enabled()) return;
        enable();
        watcher_ = rt::make<StatusWatcher>(card(), seen_);
        return greet();
    }
  }

  // Makes it as it was at first, if that can be; else it is to be thrown away.
  bool reset() {
    happen(LinkEvent::disable);
    happen(LinkEvent::disconnect);
    return ++uses_ < 100 && vm()->pendingVnics().empty();
  }

  // What is not as the model says; empty when all is well.
  std::string differenceFrom(const LinkModel& model) const {
    if (status()->enabled() != model.enabled) return "enabled";
    const Vnic::Ptr vnic = card();
    if ((vnic != nullptr) != model.enabled) return "whether there is a card";
    if (kernel.badCloses() != 0) return "a descriptor closed twice";
    if (configuredHosts().size() != (model.tapOpen() ? 1U : 0U)) return "MAC entries";
    if (openTapsOfCards() != kernel.openTaps()) return "taps that no card holds";
    if (kernel.macvtaps().size() > (model.present ? 1U : 0U)) return "devices left over";
    if (!vnic) return kernel.macvtaps().empty() ? "" : "a device without a card";
    if (vnic->status() != model.status) return "status " + rt::toText(vnic->status()).str();
    if (vnic->linkDownPending() != model.downPending) return "linkDownPending";
    if ((vnic->macvtapFd() != Vnic::noFd) != model.tapOpen()) return "whether the tap is open";
    if (commandsOf(vnic) != (model.commandPending() ? 1 : 0)) return "commands pending";
    return {};
  }

 protected:
  // The session comes up and QEMU answers what concerns no card.
  virtual void greet() = 0;
  // QEMU answers the command about the card that it has, if any; refusing: with an error.
  virtual void answer(bool refuse) = 0;
  // QEMU leaves it without an answer, for good.
  virtual void timeOut() = 0;

 private:
  size_t openTapsOfCards() const {
    std::set<uint32_t> taps;
    for (const auto& [id, vnic] : vm()->vnics()) taps.insert(vnic->macvtapFd());
    for (const auto& [id, vnic] : vm()->pendingVnics()) taps.insert(vnic->macvtapFd());
    taps.erase(Vnic::noFd);
    return taps.size();
  }
  int commandsOf(const Vnic::Ptr& wanted) const {
    int count = 0;
    for (const auto& [id, vnic] : vm()->pendingVnics()) count += vnic == wanted ? 1 : 0;
    return count;
  }

  std::set<Transition>& seen_;
  bool present_ = false;
  int uses_ = 0;  // each leaves a monitor's socket open
  rt::Ptr<StatusWatcher> watcher_;
};

// Its events reach the agent through the records that it shares with the session, which never hears
// of QEMU: cheap enough for every order.
class RecordLinkWorld final : public LinkWorld {
 public:
  using LinkWorld::LinkWorld;

 private:
  void greet() override {
    answered_.reset();
    lost_ = 0;
    locked([&] { vm()->monitorStatus()->stateIs(MonitorStatus::MonitorState::connected); });
  }
  std::optional<uint32_t> due() const {
    for (const auto& [id, vnic] : vm()->pendingVnics())
      if (vnic == card() && id > lost_) return id;
    return std::nullopt;
  }
  void answer(bool refuse) override {
    const auto id = due();
    if (!id) return;
    const auto cmd = card()->status() == Vnic::linkGoingUp ? MonitorCommand::backendAdd
                                                           : MonitorCommand::backendDel;
    lost_ = *id;
    if (refuse) return;
    answered_ = {cmd, *id};
    publish(cmd, *id);
  }
  void timeOut() override {
    const auto id = due();
    if (!id) return;
    lost_ = *id;
    const auto [cmd, cmdId] = answered_.value_or(std::pair(MonitorCommand::enterCmdMode, 0U));
    publish(cmd, cmdId, "", MonitorOutput::MonitorCommandStatus::failure);
  }

  std::optional<std::pair<MonitorCommand, uint32_t>> answered_;  // the session's last result
  uint32_t lost_ = 0;  // commands up to this id get no more answers
};

// Its events are bytes on the monitor's socket.
class QemuLinkWorld final : public LinkWorld {
 public:
  using LinkWorld::LinkWorld;

 private:
  static const char* idOf(const std::string& request) {
    for (const char* const id :
         {"enter", "status", "chardev", "cont", "getfd", "netdev", "setlink", "closefd"})
      if (request.ends_with("\"id\": \"" + std::string(id) + "\" }\n")) return id;
    return "invalid";
  }
  static bool isOfCard(const std::string& request) {
    return request.find("hostnet0") != std::string::npos;
  }
  static bool isLast(const std::string& request) {
    return request.find("\"up\": true") != std::string::npos ||
           request.find("netdev_del") != std::string::npos;
  }

  void settle() {
    for (Texts asked = qemu().takeTexts(); !asked.empty(); asked = qemu().takeTexts()) {
      for (const std::string& request : asked) {
        if (isOfCard(request)) {
          waiting_ = request;
          return;
        }
        const bool isStatus = std::string_view(idOf(request)) == "status";
        qemu().send(returnOf(idOf(request), isStatus ? "{\"running\": true}"
                                                     : "[{\"filename\": \"pty:/dev/pts/3\", "
                                                       "\"label\": \"serial0\"}]"));
      }
      turn();
    }
  }
  void greet() override {
    waiting_.clear();
    qemu().send(greeting());
    turn();
    settle();
  }
  void answer(bool refuse) override {
    if (!web1->enabled()) return;
    if (waiting_.empty()) settle();
    for (bool more = !waiting_.empty(); more;) {
      const std::string request = std::exchange(waiting_, {});
      more = !isLast(request);
      qemu().send(more || !refuse ? returnOf(idOf(request)) : errorOf(idOf(request)));
      turn();
      settle();
    }
  }
  void timeOut() override {
    if (web1->enabled() && waiting_.empty()) settle();
    waiting_.clear();
    advance(5);
    if (web1->enabled()) settle();
  }

  std::string waiting_;  // the request about the card that QEMU has
};

// Lets all orders of `length` events happen that begin with `first`, each from the start.
template <class World>
int runAllOrders(int length, int first, std::set<Transition>& seen) {
  int orders = 1;
  for (int i = 1; i < length; ++i) orders *= linkEvents;
  std::optional<World> world;
  for (int order = 0; order < orders; ++order) {
    if (!world || !world->reset()) world.emplace(seen);
    LinkModel model;
    std::string soFar;
    for (int step = 0, rest = order; step < length; ++step) {
      const int number = step == 0 ? first : rest % linkEvents;
      if (step != 0) rest /= linkEvents;
      soFar += std::string(" ") + linkEventNames[number];
      world->happen(static_cast<LinkEvent>(number));
      model.handle(static_cast<LinkEvent>(number));
      if (const auto difference = world->differenceFrom(model); !difference.empty()) {
        ADD_FAILURE() << "after" << soFar << ": " << difference;
        return orders;
      }
    }
  }
  return orders;
}

class LinkState : public testing::TestWithParam<int> {};

TEST_P(LinkState, FollowsTheModelInEveryOrderOfSixEvents) {
  std::set<Transition> seen;
  EXPECT_EQ(runAllOrders<RecordLinkWorld>(6, GetParam(), seen), 16'807);
  EXPECT_EQ(seen, linkTable);
}

TEST_P(LinkState, FollowsTheModelInEveryOrderOfFiveEventsThroughQemusSocket) {
  std::set<Transition> seen;
  EXPECT_EQ(runAllOrders<QemuLinkWorld>(5, GetParam(), seen), 2'401);
  EXPECT_THAT(linkTable, testing::IsSupersetOf(seen));
}

INSTANTIATE_TEST_SUITE_P(BeginningWith, LinkState, testing::Range(0, linkEvents),
                         [](const auto& test) { return linkEventNames[test.param]; });

}  // namespace

}  // namespace Vm::fakes
