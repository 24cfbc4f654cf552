#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>

#include "runtime/entity/StateMachine.h"
#include "runtime/entity/TestEntities.h"

namespace rt::test {

// Counts how often it did its initial work, which changes the lamp that it watches.
class Lighter final : public StateMachineOf<Lighter> {
 public:
  explicit Lighter(const Lamp::Ptr& lamp) : lamp_(*this, lamp) { handleInitialized(); }

  void handleInitialized() {
    if (initialized()) return;
    initializedIs(true);
    ++works_;
    lamp_->litIs(true);
  }
  int works() const { return works_; }
  int heard() const { return heard_; }
  bool wasInitializedWhenItHeard() const { return wasInitializedWhenItHeard_; }

  static constexpr std::string_view typeName = "Test::Lighter";
  using Attributes = AttributeTable<Attribute<"initialized", &Lighter::initialized>>;

 private:
  void handleLit() {
    ++heard_;
    wasInitializedWhenItHeard_ = initialized();
  }

  int works_ = 0;
  int heard_ = 0;
  bool wasInitializedWhenItHeard_ = false;
  Reactor<Lighter, Lamp, On<&Lamp::lit, &Lighter::handleLit>> lamp_;
};

// Attaches to a lamp and then fails.
class Broken final : public StateMachineOf<Broken> {
 public:
  explicit Broken(const Lamp::Ptr& lamp) : lamp_(*this, lamp) {
    throw std::runtime_error("broken");
  }
  void handleLit() {}
  static constexpr std::string_view typeName = "Test::Broken";
  using Attributes = AttributeTable<Attribute<"initialized", &Broken::initialized>>;

 private:
  Reactor<Broken, Lamp, On<&Lamp::lit, &Broken::handleLit>> lamp_;
};

// A machine whose reactors are made when they are needed.
class Collector final : public StateMachineOf<Collector> {
 public:
  void watch(const Lamp::Ptr& lamp) {
    reactors_.push_back(std::make_unique<LampReactor>(*this, lamp));
  }
  int heard() const { return heard_; }

  static constexpr std::string_view typeName = "Test::Collector";
  using Attributes = AttributeTable<Attribute<"initialized", &Collector::initialized>>;

 private:
  void handleLit() { ++heard_; }

  using LampReactor = Reactor<Collector, Lamp, On<&Lamp::lit, &Collector::handleLit>>;
  int heard_ = 0;
  std::vector<std::unique_ptr<LampReactor>> reactors_;
};

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(StateMachine, DoesItsInitialWorkOnce) {
  const auto lighter = make<Lighter>(make<Lamp>());
  lighter->handleInitialized();
  EXPECT_TRUE(lighter->initialized());
  EXPECT_EQ(lighter->works(), 1);
}

TEST(StateMachine, HearsTheChangeItsOwnConstructorMakes) {
  const auto lamp = make<Lamp>();
  const auto lighter = make<Lighter>(lamp);
  EXPECT_EQ(lighter->heard(), 1);
  EXPECT_TRUE(lighter->wasInitializedWhenItHeard());
  EXPECT_EQ(lighter->references(), 1U);
}

TEST(StateMachine, HearsNothingAfterItsEnd) {
  const auto lamp = make<Lamp>();
  Log log;
  auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher = nullptr;
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_FALSE(lamp->hasReactors());
}

TEST(StateMachine, IsDetachedBeforeItsMembersAreDestroyed) {
  const auto lamp = make<Lamp>();
  Log log;
  auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->atEnd = [&] {
    log.push_back("end");
    lamp->litIs(true);
  };
  watcher = nullptr;
  EXPECT_THAT(log, ElementsAre("end"));
}

TEST(StateMachine, StillHearsDuringItsLastAct) {
  const auto lamp = make<Lamp>();
  Log log;
  auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->atLastAct = [&] { lamp->litIs(true); };
  watcher = nullptr;
  EXPECT_THAT(log, ElementsAre("lit"));
  EXPECT_FALSE(lamp->hasReactors());
}

TEST(StateMachine, LeavesItsEntitiesWhenItsConstructorThrows) {
  const auto lamp = make<Lamp>();
  EXPECT_THROW(make<Broken>(lamp), std::runtime_error);
  EXPECT_FALSE(lamp->hasReactors());
  EXPECT_EQ(lamp->references(), 1U);
}

TEST(StateMachine, MayBeDroppedByItsOwnHandler) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr watcher;
  watcher = make<Watcher>(lamp, [&] {
    Watcher* const self = watcher.get();
    watcher = nullptr;
    log.push_back(self->lamp()->name().str());  // it may finish its sentence
  });
  lamp->litIs(true);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("lamp"));
  EXPECT_FALSE(lamp->hasReactors());
}

TEST(StateMachine, MayBeRemovedByItsOwnHandler) {
  const auto lamp = make<Lamp>();
  const auto office = make<Office>();
  Log log;
  office->watcherIs("a", lamp, [&] {
    log.push_back("a");
    office->watcherDel("a");
  });
  office->guardIs(lamp, [&] {
    log.push_back("guard");
    office->guardDel();
  });
  lamp->litIs(true);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("a", "guard"));
  EXPECT_TRUE(office->watchers().empty());
  EXPECT_EQ(office->guard(), nullptr);
}

TEST(StateMachine, DroppedByAnEarlierHandlerIsNotTold) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr second;
  const auto first = make<Watcher>(lamp, [&] { second = nullptr; });
  second = make<Watcher>(lamp, says(log, "second"));
  const auto third = make<Watcher>(lamp, says(log, "third"));
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("third"));
}

TEST(StateMachine, AlreadyToldMayBeDroppedByALaterHandler) {
  const auto lamp = make<Lamp>();
  Log log;
  auto first = make<Watcher>(lamp, says(log, "first"));
  const auto second = make<Watcher>(lamp, [&] { first = nullptr; });
  const auto third = make<Watcher>(lamp, says(log, "third"));
  lamp->litIs(true);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("first", "third", "third"));
}

TEST(StateMachine, DroppedByItsHandlerTakesTheEntityThatTellsWithIt) {
  auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr watcher;
  watcher = make<Watcher>(lamp, [&] {
    log.push_back("lit");
    watcher = nullptr;
  });
  Lamp* const told = lamp.get();
  lamp = nullptr;  // only its reactor refers to it now
  told->litIs(true);
  EXPECT_THAT(log, ElementsAre("lit"));
  EXPECT_EQ(watcher, nullptr);
}

TEST(StateMachine, RemovedFromAnAttributeHearsNothingWhileSomebodyStillHoldsIt) {
  const auto lamp = make<Lamp>();
  const auto office = make<Office>();
  Log log;
  const auto guard = office->guardIs(lamp, says(log, "lit"));
  EXPECT_EQ(office->guardDel(), guard);
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_FALSE(guard->registered());
}

TEST(StateMachine, RemovedFromACollectionHearsNothingWhileSomebodyStillHoldsIt) {
  const auto lamp = make<Lamp>();
  const auto office = make<Office>();
  Log log;
  const auto one = office->watcherIs("one", lamp, says(log, "one"));
  const auto two = office->watcherIs("two", lamp, says(log, "two"));
  EXPECT_EQ(office->watcherDel("one"), one);
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("two"));
  office->watcherDelAll();
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("two"));
}

TEST(StateMachine, RemovedHearsNothingOfItsOwnLastAct) {
  const auto office = make<Office>();
  const auto lamp = make<Lamp>();
  Log log;
  office->guardIs(lamp, says(log, "guard"));
  office->guard()->atLastAct = [&] { lamp->litIs(true); };
  office->guardDel();
  EXPECT_TRUE(lamp->lit());
  EXPECT_THAT(log, IsEmpty());
}

TEST(StateMachine, RetiredCanStillReadItsInputs) {
  const auto watcher = make<Watcher>(make<Lamp>("kept"));
  watcher->retire();
  EXPECT_EQ(watcher->lamp()->name(), "kept");
  EXPECT_FALSE(watcher->registered());
}

TEST(StateMachine, RetiredHearsNothingOfAnEntityItIsGivenLater) {
  const auto later = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(make<Lamp>(), says(log, "lit"));
  watcher->retire();
  watcher->lampIs(later);
  later->litIs(true);
  EXPECT_THAT(log, IsEmpty());
}

TEST(StateMachine, HearsThroughReactorsMadeAfterItsConstructor) {
  const auto collector = make<Collector>();
  const auto a = make<Lamp>("a");
  const auto b = make<Lamp>("b");
  collector->watch(a);
  collector->watch(b);
  a->litIs(true);
  b->litIs(true);
  EXPECT_EQ(collector->heard(), 2);
}

TEST(StateMachine, RetiredHearsNothingThroughAReactorMadeLater) {
  const auto collector = make<Collector>();
  const auto lamp = make<Lamp>();
  collector->retire();
  collector->watch(lamp);
  lamp->litIs(true);
  EXPECT_EQ(collector->heard(), 0);
}

TEST(StateMachine, SwitchedOffDropsWhatItsReactorsAreTold) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->hasNotificationActiveIs(false);
  EXPECT_FALSE(watcher->hasNotificationActive());
  EXPECT_FALSE(watcher->source().hasNotificationActive());
  lamp->litIs(true);
  watcher->hasNotificationActiveIs(true);
  EXPECT_THAT(log, IsEmpty());
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("lit"));
}

TEST(StateMachine, AskedForAgainWithAnotherInputThrowsAndKeepsTheFirst) {
  const auto office = make<Office>();
  const auto lamp = make<Lamp>("lamp");
  const auto guard = office->guardIs(lamp);
  EXPECT_EQ(office->guardIs(lamp), guard);
  const auto text =
      thrownBy<ReinstantiationException>([&] { office->guardIs(make<Lamp>("other")); });
  EXPECT_EQ(text, "Test::Watcher::lamp: it exists already with a different value");
  EXPECT_EQ(office->guard(), guard);
  EXPECT_EQ(guard->lamp(), lamp);
}

TEST(StateMachine, RunsTheHandlerOfTheAttributeThatChanged) {
  const auto house = make<House>();
  Log log;
  const auto watcher = make<HouseWatcher>(
      house, [&](const String& name) { log.push_back("lamp " + name.str()); },
      [&](uint32_t number) { log.push_back("reading " + std::to_string(number)); },
      says(log, "door"));
  house->doorLampIs("porch");
  house->readingIs(3, "low");
  house->lampIs("hall");
  EXPECT_THAT(log, ElementsAre("door", "reading 3", "lamp hall"));
}

}  // namespace
}  // namespace rt::test
