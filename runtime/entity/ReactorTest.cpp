#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>

#include "runtime/entity/Reactor.h"
#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace rt::test {

// A machine whose reactors come and go.
class Owner final : public StateMachineOf<Owner> {
 public:
  void handleLit() {}
  void handleAny(const Entity&, const Change&) {}
  std::optional<Reactor<Owner, Lamp, On<&Lamp::lit, &Owner::handleLit>>> lamp;
  std::optional<AnyReactor<Owner, &Owner::handleAny>> any;

  static constexpr std::string_view typeName = "Test::Owner";
  using Attributes = AttributeTable<Attribute<"initialized", &Owner::initialized>>;
};

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Reactor, HearsOfItsAttribute) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("lit"));
}

TEST(Reactor, HearsNothingOfAnEqualValue) {
  const auto lamp = make<Lamp>();
  lamp->litIs(true);
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
}

TEST(Reactor, HearsNothingOfAttributesItHasNoHandlerFor) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  lamp->wattsIs(40);
  EXPECT_THAT(log, IsEmpty());
}

TEST(Reactor, IsToldInOrderOfRegistration) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto a = make<Watcher>(lamp, says(log, "a"));
  const auto b = make<Watcher>(lamp, says(log, "b"));
  const auto c = make<Watcher>(lamp, says(log, "c"));
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
}

TEST(Reactor, GoesToTheEndOfTheOrderWhenItRegistersAgain) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto a = make<Watcher>(lamp, says(log, "a"));
  const auto b = make<Watcher>(lamp, says(log, "b"));
  a->lampIs(lamp);
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("b", "a"));
}

TEST(Reactor, IsRegisteredOnlyWhileItHasAnEntity) {
  const auto lamp = make<Lamp>();
  const auto watcher = make<Watcher>(lamp);
  EXPECT_TRUE(watcher->registered());
  EXPECT_TRUE(lamp->hasReactors());
  watcher->lampIs(nullptr);
  EXPECT_FALSE(watcher->registered());
  EXPECT_FALSE(lamp->hasReactors());
}

TEST(Reactor, KeepsItsEntityAlive) {
  auto lamp = make<Lamp>("kept");
  const auto watcher = make<Watcher>(lamp);
  lamp = nullptr;
  EXPECT_EQ(watcher->lamp()->name(), "kept");
  EXPECT_EQ(watcher->lamp()->references(), 1U);
}

TEST(Reactor, HearsTheNewEntityAndNotTheOldOneWhenMoved) {
  const auto oldLamp = make<Lamp>();
  const auto newLamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(oldLamp, says(log, "lit"));
  watcher->lampIs(newLamp);
  oldLamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
  newLamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("lit"));
}

TEST(Reactor, NestedChangeIsToldAtOnceAndTheOuterRoundGoesOnWithTheNewestValue) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto first = make<Watcher>(lamp, [&] {
    log.push_back(lamp->lit() ? "first on" : "first off");
    if (lamp->lit()) lamp->litIs(false);
    log.push_back("first done");
  });
  const auto second =
      make<Watcher>(lamp, [&] { log.push_back(lamp->lit() ? "second on" : "second off"); });
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("first on", "first off", "first done", "second off", "first done",
                               "second off"));
}

TEST(Reactor, AttachedDuringARoundIsNotToldInThatRound) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr late;
  const auto first = make<Watcher>(lamp, [&] {
    log.push_back("first");
    if (!late) late = make<Watcher>(lamp, says(log, "late"));
  });
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("first"));
  log.clear();
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("first", "late"));
}

TEST(Reactor, AttachedDuringARoundIsToldOfAChangeNestedInIt) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr late;
  const auto first = make<Watcher>(lamp, [&] {
    if (late) return;
    late = make<Watcher>(lamp, says(log, "late"));
    lamp->litIs(false);
  });
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("late"));
}

TEST(Reactor, DetachedBeforeItsTurnIsNotTold) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr second;
  const auto first = make<Watcher>(lamp, [&] { second->lampIs(nullptr); });
  second = make<Watcher>(lamp, says(log, "second"));
  const auto third = make<Watcher>(lamp, says(log, "third"));
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("third"));
}

TEST(Reactor, MayDetachItselfWhileItIsTold) {
  const auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr first;
  first = make<Watcher>(lamp, [&] {
    log.push_back("first");
    first->lampIs(nullptr);
  });
  const auto second = make<Watcher>(lamp, says(log, "second"));
  lamp->litIs(true);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("first", "second", "second"));
}

TEST(Reactor, MayMoveToAnotherEntityWhileItIsTold) {
  const auto lamp = make<Lamp>("one");
  const auto other = make<Lamp>("other");
  Log log;
  Watcher::Ptr first;
  first = make<Watcher>(lamp, [&] {
    log.push_back(first->lamp()->name().str());
    first->lampIs(other);
  });
  const auto second = make<Watcher>(lamp, says(log, "second"));
  lamp->litIs(true);
  other->litIs(true);
  EXPECT_THAT(log, ElementsAre("one", "second", "other"));
}

TEST(Reactor, AllMayDetachWhileTheFirstIsTold) {
  const auto lamp = make<Lamp>();
  Log log;
  std::vector<Watcher::Ptr> watchers;
  watchers.reserve(3);
  for (int i = 0; i < 3; ++i)
    watchers.push_back(make<Watcher>(lamp, [&, i] {
      log.push_back(std::to_string(i));
      for (const auto& watcher : watchers) watcher->lampIs(nullptr);
    }));
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("0"));
  EXPECT_FALSE(lamp->hasReactors());
}

TEST(Reactor, MayDropTheLastReferenceToTheEntityThatTells) {
  auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr first;
  Watcher::Ptr second;
  first = make<Watcher>(lamp, [&] {
    log.push_back("first");
    first->lampIs(nullptr);
    second->lampIs(nullptr);
    lamp = nullptr;
  });
  second = make<Watcher>(lamp, says(log, "second"));
  Lamp* const told = lamp.get();
  told->litIs(true);
  EXPECT_THAT(log, ElementsAre("first"));
  EXPECT_EQ(first->lamp(), nullptr);
}

TEST(Reactor, MayDropTheLastReferenceToTheEntityInANestedRound) {
  auto lamp = make<Lamp>();
  Log log;
  Watcher::Ptr only;
  only = make<Watcher>(lamp, [&] {
    log.push_back(only->lamp()->lit() ? "on" : "off");
    if (only->lamp()->lit()) return only->lamp()->litIs(false);
    only->lampIs(nullptr);
    lamp = nullptr;
  });
  Lamp* const told = lamp.get();
  told->litIs(true);
  EXPECT_THAT(log, ElementsAre("on", "off"));
}

TEST(Reactor, MayBeDestroyedWhileItHoldsTheLastReferenceToItsEntity) {
  const auto owner = make<Owner>();
  owner->lamp.emplace(*owner, make<Lamp>());
  owner->any.emplace(*owner, make<Lamp>());
  EXPECT_EQ((*owner->lamp)->references(), 1U);
  owner->lamp.reset();
  owner->any.reset();
  EXPECT_FALSE(owner->lamp || owner->any);
}

TEST(Reactor, ExceptionOfAHandlerPassesThroughAndEndsTheRound) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto first = make<Watcher>(lamp, [] { throw std::runtime_error("boom"); });
  const auto second = make<Watcher>(lamp, says(log, "second"));
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { lamp->litIs(true); }), "boom");
  EXPECT_THAT(log, IsEmpty());
  EXPECT_TRUE(lamp->lit());
}

TEST(Reactor, HearsLaterChangesAfterAnException) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto first = make<Watcher>(lamp, [&] {
    if (lamp->lit()) throw std::runtime_error("boom");
    log.push_back("first");
  });
  const auto second = make<Watcher>(lamp, says(log, "second"));
  EXPECT_THROW(lamp->litIs(true), std::runtime_error);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("first", "second"));
}

TEST(Reactor, HearsLaterChangesAfterAnExceptionOutOfANestedRound) {
  const auto lamp = make<Lamp>();
  Log log;
  bool quiet = false;
  const auto first = make<Watcher>(lamp, [&] {
    log.push_back("first");
    if (!quiet && lamp->lit()) lamp->litIs(false);
  });
  const auto second = make<Watcher>(lamp, [&] {
    log.push_back("second");
    if (!quiet) throw std::runtime_error("boom");
  });
  EXPECT_THROW(lamp->litIs(true), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("first", "first", "second"));
  log.clear();
  quiet = true;
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("first", "second"));
}

TEST(Reactor, DropsWhatIsToldWhileItIsOff) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->source().hasNotificationActiveIs(false);
  lamp->litIs(true);
  watcher->source().hasNotificationActiveIs(true);
  EXPECT_THAT(log, IsEmpty());
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("lit"));
}

TEST(Reactor, OneThatIsOffKeepsNoOtherFromHearing) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto first = make<Watcher>(lamp, says(log, "first"));
  const auto second = make<Watcher>(lamp, says(log, "second"));
  first->source().hasNotificationActiveIs(false);
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("second"));
}

TEST(Reactor, MarkedForDeletionHearsNothingUntilTheMarkIsTakenBack) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->source().deletionMarkIs(true);
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
  watcher->source().deletionMarkIs(false);
  lamp->litIs(false);
  EXPECT_THAT(log, ElementsAre("lit"));
}

TEST(Reactor, MarkedForDeletionStaysSilentWhenItIsSwitchedOffAndOn) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  watcher->source().deletionMarkIs(true);
  watcher->source().hasNotificationActiveIs(false);
  watcher->source().hasNotificationActiveIs(true);
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
}

TEST(Reactor, IgnoresAnEntityMarkedForDeletion) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto watcher = make<Watcher>(lamp, says(log, "lit"));
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->deletionMarkIs(true);
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(Reactor, IgnoresAnEntityThatAnEarlierHandlerOfTheRoundMarkedForDeletion) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto first = make<Watcher>(lamp, [&] { lamp->deletionMarkIs(true); });
  const auto second = make<Watcher>(lamp, says(log, "second"));
  lamp->litIs(true);
  EXPECT_THAT(log, IsEmpty());
}

}  // namespace
}  // namespace rt::test
