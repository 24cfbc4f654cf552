#include <gmock/gmock.h>

#include <thread>

#include "runtime/base/Check.h"
#include "runtime/base/Exception.h"
#include "runtime/entity/Entity.h"
#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace rt::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(Entity, TellsOfAScalarThatChanges) {
  const auto lamp = make<Lamp>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->wattsIs(40);
  EXPECT_THAT(recorder->take(), ElementsAre("Test::Lamp.watts = 40"));
}

TEST(Entity, TellsNothingOfAnEqualScalar) {
  const auto lamp = make<Lamp>();
  lamp->wattsIs(40);
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->wattsIs(40);
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(Entity, StoresBeforeItTells) {
  const auto lamp = make<Lamp>();
  bool seen = false;
  const auto watcher = make<Watcher>(lamp, [&] { seen = lamp->lit(); });
  lamp->litIs(true);
  EXPECT_TRUE(seen);
}

TEST(Entity, DropsWhatChangesWhileItsNotificationsAreOff) {
  const auto lamp = make<Lamp>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->hasNotificationActiveIs(false);
  lamp->wattsIs(40);
  lamp->litIs(true);
  lamp->hasNotificationActiveIs(true);
  EXPECT_THAT(recorder->take(), IsEmpty());
  EXPECT_EQ(lamp->watts(), 40U);
}

TEST(Entity, TellsAgainWhenItsNotificationsAreOnAgain) {
  const auto lamp = make<Lamp>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->hasNotificationActiveIs(false);
  lamp->wattsIs(40);
  lamp->hasNotificationActiveIs(true);
  lamp->wattsIs(60);
  EXPECT_THAT(recorder->take(), ElementsAre("Test::Lamp.watts = 60"));
}

TEST(Entity, HasNotificationsOnAndNoDeletionMarkAtFirst) {
  const auto lamp = make<Lamp>();
  EXPECT_TRUE(lamp->hasNotificationActive());
  EXPECT_FALSE(lamp->deletionMark());
}

TEST(Entity, OwnedAttributeIsMadeOnceAndThenReturned) {
  const auto house = make<House>();
  const auto first = house->doorLampIs("porch");
  EXPECT_EQ(house->doorLampIs("porch"), first);
  EXPECT_EQ(house->doorLamp(), first);
}

TEST(Entity, OwnedAttributeAskedForOtherwiseThrowsAndStaysAsItWas) {
  const auto house = make<House>();
  const auto first = house->doorLampIs("porch");
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(house);
  const auto text = thrownBy<ReinstantiationException>([&] { house->doorLampIs("drive"); });
  EXPECT_THAT(text, HasSubstr("Test::Lamp::name"));
  EXPECT_EQ(house->doorLamp(), first);
  EXPECT_EQ(house->doorLamp()->name(), "porch");
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(Entity, OwnedAttributeTellsWhenItComesAndWhenItGoes) {
  const auto house = make<House>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(house);
  house->doorLampIs("porch");
  house->doorLampDel();
  house->doorLampDel();
  EXPECT_THAT(recorder->take(), ElementsAre("Test::House.doorLamp", "Test::House.doorLamp"));
  EXPECT_EQ(house->doorLamp(), nullptr);
}

TEST(Entity, OwnedAttributeIsGoneAlreadyWhenItsRemovalIsTold) {
  const auto house = make<House>();
  house->doorLampIs("porch");
  bool there = true;
  const auto watcher = make<HouseWatcher>(
      house, [](const String&) {}, [](uint32_t) {}, [&] { there = house->doorLamp() != nullptr; });
  house->doorLampDel();
  EXPECT_FALSE(there);
}

TEST(EntityTree, ListsTheChildrenOfAParent) {
  const auto house = make<House>();
  const auto a = make<Lamp>("a");
  const auto b = make<Lamp>("b");
  a->parentIs(house.get());
  b->parentIs(house.get());
  std::vector<const Entity*> children;
  for (const Entity* child = house->firstChild(); child; child = child->nextSibling())
    children.push_back(child);
  EXPECT_THAT(children, ::testing::UnorderedElementsAre(a.get(), b.get()));
  EXPECT_EQ(a->parent(), house.get());
}

TEST(EntityTree, NullDetachesOneChildAndLeavesTheOthers) {
  const auto house = make<House>();
  const auto a = make<Lamp>("a");
  const auto b = make<Lamp>("b");
  const auto c = make<Lamp>("c");
  for (const auto& lamp : {a, b, c}) lamp->parentIs(house.get());
  b->parentIs(nullptr);
  EXPECT_EQ(b->parent(), nullptr);
  EXPECT_EQ(b->nextSibling(), nullptr);
  EXPECT_EQ(house->firstChild(), c.get());
  EXPECT_EQ(c->nextSibling(), a.get());
  EXPECT_EQ(a->nextSibling(), nullptr);
}

TEST(EntityTree, AttachingElsewhereLeavesTheOldParent) {
  const auto oldHouse = make<House>();
  const auto newHouse = make<House>();
  const auto lamp = make<Lamp>();
  lamp->parentIs(oldHouse.get());
  lamp->parentIs(newHouse.get());
  EXPECT_EQ(oldHouse->firstChild(), nullptr);
  EXPECT_EQ(newHouse->firstChild(), lamp.get());
  EXPECT_EQ(lamp->parent(), newHouse.get());
}

TEST(EntityTree, AttachingToTheSameParentAgainChangesNothing) {
  const auto house = make<House>();
  const auto lamp = make<Lamp>();
  lamp->parentIs(house.get());
  lamp->parentIs(house.get());
  EXPECT_EQ(house->firstChild(), lamp.get());
  EXPECT_EQ(lamp->nextSibling(), nullptr);
}

TEST(EntityTree, ChildrenAreDetachedWhenTheirParentEnds) {
  auto house = make<House>();
  const auto a = make<Lamp>("a");
  const auto b = make<Lamp>("b");
  a->parentIs(house.get());
  b->parentIs(house.get());
  house = nullptr;
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(b->parent(), nullptr);
  EXPECT_EQ(b->nextSibling(), nullptr);
}

TEST(EntityTree, ChildThatEndsLeavesItsParent) {
  const auto house = make<House>();
  auto lamp = make<Lamp>();
  lamp->parentIs(house.get());
  lamp = nullptr;
  EXPECT_EQ(house->firstChild(), nullptr);
}

TEST(EntityTree, ParentOwnsNoReferenceToItsChild) {
  const auto house = make<House>();
  const auto lamp = make<Lamp>();
  lamp->parentIs(house.get());
  EXPECT_EQ(lamp->references(), 1U);
  EXPECT_EQ(house->references(), 1U);
}

TEST(EntityTreeDeathTest, RefusesAnEntityUnderItself) {
  const auto lamp = make<Lamp>();
  EXPECT_DEATH(lamp->parentIs(lamp.get()),
               "assertion failed: an entity is attached under itself or its own child\n");
}

TEST(EntityTreeDeathTest, RefusesAnEntityUnderItsGrandchild) {
  const auto house = make<House>();
  const auto child = make<Lamp>("child");
  const auto grandchild = make<Lamp>("grandchild");
  child->parentIs(house.get());
  grandchild->parentIs(child.get());
  EXPECT_DEATH(house->parentIs(grandchild.get()),
               "assertion failed: an entity is attached under itself or its own child\n");
}

#ifndef NDEBUG  // misuse that only debug builds look for

// Lights the lamp and puts it out again, one inside the other, `depth` deep. Returns how many of
// these changes were told.
int nestNotifications(int depth) {
  const auto lamp = make<Lamp>();
  int told = 0;
  const auto watcher = make<Watcher>(lamp, [&] {
    if (++told < depth) lamp->litIs(!lamp->lit());
  });
  lamp->litIs(true);
  return told;
}

TEST(Entity, NestsNotificationsSixtyFourDeep) { EXPECT_EQ(nestNotifications(64), 64); }

TEST(EntityDeathTest, NotificationsNestedDeeperThanSixtyFourDieNamingTheAttribute) {
  EXPECT_DEATH(nestNotifications(65),
               "assertion failed: notifications are nested more than 64 deep; the last is of "
               "Test::Lamp.lit\n");
}

TEST(EntityDeathTest, DestructionWithAReactorAttachedDiesNamingTheType) {
  EXPECT_DEATH(
      {
        ReactorLink link([](ReactorLink&, const Change&) {});
        auto lamp = make<Lamp>();
        lamp->reactorIs(link);
        lamp = nullptr;
      },
      "assertion failed: a Test::Lamp is destroyed while reactors are attached to it\n");
}

// Changes a watched lamp on a thread of its own.
void changeElsewhere(const Lamp::Ptr& lamp) {
  std::thread([&] { lamp->litIs(true); }).join();
}

TEST(EntityDeathTest, ChangeOnAThreadOtherThanTheOneNamedDies) {
  const auto lamp = make<Lamp>();
  const auto watcher = make<Watcher>(lamp);
  EXPECT_DEATH(
      {
        notificationThreadIs(true);
        changeElsewhere(lamp);
      },
      "assertion failed: Test::Lamp.lit changed on a thread other than the activity thread\n");
}

#endif

TEST(Entity, MayChangeOnAnyThreadWhileNoneIsNamed) {
  const auto lamp = make<Lamp>();
  int heard = 0;
  const auto watcher = make<Watcher>(lamp, [&] { ++heard; });
  notificationThreadIs(true);
  notificationThreadIs(false);
  std::thread([&] { lamp->litIs(true); }).join();
  EXPECT_EQ(heard, 1);
}

}  // namespace
}  // namespace rt::test
