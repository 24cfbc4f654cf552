// What the owner of a collection does to its members, and what reactors hear of it.
#include <gmock/gmock.h>

#include <stdexcept>

#include "runtime/entity/Collection.h"
#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace rt::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A house and a record of what it tells.
class CollectionOfEntities : public ::testing::Test {
 protected:
  CollectionOfEntities() { recorder_->watch(house_); }

  const House::Ptr house_ = make<House>();
  const Ptr<fakes::ChangeRecorder> recorder_ = make<fakes::ChangeRecorder>();
};
using CollectionOfValues = CollectionOfEntities;

TEST_F(CollectionOfEntities, HasNothingAtFirst) {
  EXPECT_TRUE(house_->lamps().empty());
  EXPECT_EQ(house_->lamps().size(), 0U);
  EXPECT_FALSE(house_->lamps().has("hall"));
  EXPECT_EQ(house_->lamps().find("hall"), nullptr);
  EXPECT_EQ(house_->lamp("hall"), nullptr);
}

TEST_F(CollectionOfEntities, MakesAMemberAndTellsItsKey) {
  const auto hall = house_->lampIs("hall");
  EXPECT_EQ(hall->name(), "hall");
  EXPECT_EQ(house_->lamp("hall"), hall);
  EXPECT_TRUE(house_->lamps().has("hall"));
  EXPECT_EQ(house_->lamps().size(), 1U);
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.lamp[hall]"));
}

TEST_F(CollectionOfEntities, ReturnsTheMemberThatIsThereAndTellsNothing) {
  const auto hall = house_->lampIs("hall");
  recorder_->take();
  EXPECT_EQ(house_->lampIs("hall"), hall);
  EXPECT_EQ(house_->lamps().size(), 1U);
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfEntities, HasTheMemberAlreadyWhenItTellsOfIt) {
  bool there = false;
  const auto watcher =
      make<HouseWatcher>(house_, [&](const String& name) { there = house_->lamps().has(name); });
  house_->lampIs("hall");
  EXPECT_TRUE(there);
}

TEST_F(CollectionOfEntities, HasTheMemberNoMoreWhenItTellsOfItsRemoval) {
  house_->lampIs("hall");
  bool there = true;
  const auto watcher =
      make<HouseWatcher>(house_, [&](const String& name) { there = house_->lamps().has(name); });
  house_->lampDel("hall");
  EXPECT_FALSE(there);
}

TEST_F(CollectionOfEntities, ReturnsTheRemovedMemberAndReleasesItsReference) {
  const auto hall = house_->lampIs("hall");
  EXPECT_EQ(house_->lampDel("hall"), hall);
  EXPECT_EQ(hall->references(), 1U);
  EXPECT_EQ(house_->lamp("hall"), nullptr);
}

TEST_F(CollectionOfEntities, TellsNothingOfTheRemovalOfWhatIsNotThere) {
  EXPECT_EQ(house_->lampDel("hall"), nullptr);
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfEntities, TellsTheKeyAlsoWhenItBelongsToTheRemovedMember) {
  house_->lampIs("a name too long to be stored within a string itself");
  house_->lampDel(house_->lamp("a name too long to be stored within a string itself")->name());
  const auto change = "Test::House.lamp[a name too long to be stored within a string itself]";
  EXPECT_THAT(recorder_->take(), ElementsAre(change, change));
}

TEST_F(CollectionOfEntities, TellsTheKeyToLaterHandlersWhenAnEarlierOneMakesTheMemberAgain) {
  house_->lampIs("hall");
  Log log;
  bool again = true;
  const auto first = make<HouseWatcher>(house_, [&](const String& name) {
    if (std::exchange(again, false)) house_->lampIs(name);
  });
  const auto second = make<HouseWatcher>(house_, [&](const String& name) {
    log.push_back(name.str() + (house_->lamps().has(name) ? " there" : " gone"));
  });
  house_->lampDel("hall");
  EXPECT_THAT(log, ElementsAre("hall there", "hall there"));
}

TEST_F(CollectionOfEntities, TellsTheKeyToLaterHandlersWhenAnEarlierOneRemovesTheNewMember) {
  Log log;
  const auto first = make<HouseWatcher>(house_, [&](const String& name) { house_->lampDel(name); });
  const auto second =
      make<HouseWatcher>(house_, [&](const String& name) { log.push_back(name.str()); });
  house_->lampIs("hall");
  EXPECT_THAT(log, ElementsAre("hall", "hall"));
  EXPECT_TRUE(house_->lamps().empty());
}

TEST_F(CollectionOfEntities, RemovesAllInKeyOrderAndTellsEachKey) {
  for (const char* name : {"c", "a", "b"}) house_->lampIs(name);
  recorder_->take();
  house_->lampDelAll();
  EXPECT_THAT(recorder_->take(),
              ElementsAre("Test::House.lamp[a]", "Test::House.lamp[b]", "Test::House.lamp[c]"));
  EXPECT_TRUE(house_->lamps().empty());
}

TEST_F(CollectionOfEntities, RemovalOfAllMayEndTheOwner) {
  auto house = make<House>();
  for (const char* name : {"a", "b"}) house->lampIs(name);
  Log log;
  Ptr<HouseWatcher> watcher;
  watcher = make<HouseWatcher>(house, [&](const String& name) {
    log.push_back(name.str());
    watcher = nullptr;
    house = nullptr;
  });
  House* const owner = house.get();
  owner->lampDelAll();
  EXPECT_THAT(log, ElementsAre("a"));
  EXPECT_EQ(house, nullptr);
}

TEST_F(CollectionOfEntities, RemovalMayEndTheOwnerAndStillReturnsTheMember) {
  auto house = make<House>();
  house->lampIs("a");
  Ptr<HouseWatcher> watcher;
  watcher = make<HouseWatcher>(house, [&](const String&) {
    watcher = nullptr;
    house = nullptr;
  });
  House* const owner = house.get();
  const auto removed = owner->lampDel("a");
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->name(), "a");
  EXPECT_EQ(removed->references(), 1U);
}

TEST_F(CollectionOfEntities, CreationMayEndTheOwnerAndStillReturnsTheMember) {
  auto house = make<House>();
  Ptr<HouseWatcher> watcher;
  watcher = make<HouseWatcher>(house, [&](const String&) {
    watcher = nullptr;
    house = nullptr;
  });
  House* const owner = house.get();
  const auto made = owner->lampIs("a");
  EXPECT_EQ(made->name(), "a");
  EXPECT_EQ(made->references(), 1U);
}

TEST_F(CollectionOfEntities, TakesAMemberThatWasFilledBefore) {
  const auto hall = make<Lamp>("hall");
  hall->wattsIs(60);
  uint32_t seen = 0;
  const auto watcher =
      make<HouseWatcher>(house_, [&](const String& name) { seen = house_->lamp(name)->watts(); });
  house_->lampMount(hall);
  EXPECT_EQ(house_->lamp("hall"), hall);
  EXPECT_EQ(seen, 60U);
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.lamp[hall]"));
}

TEST_F(CollectionOfEntities, TakingTheSameMemberAgainTellsNothing) {
  const auto hall = make<Lamp>("hall");
  house_->lampMount(hall);
  recorder_->take();
  house_->lampMount(hall);
  EXPECT_EQ(house_->lamps().size(), 1U);
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfEntities, RefusesAnotherMemberOfTheSameKey) {
  const auto hall = house_->lampIs("hall");
  recorder_->take();
  const auto text =
      thrownBy<ReinstantiationException>([&] { house_->lampMount(make<Lamp>("hall")); });
  EXPECT_EQ(text, "Test::House::lamp: it exists already with a different value");
  EXPECT_EQ(house_->lamp("hall"), hall);
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfEntities, RefusesANullMember) {
  const auto text = thrownBy<NullArgumentException>([&] { house_->lampMount(nullptr); });
  EXPECT_EQ(text, "Test::House::lamp: a null pointer is not allowed");
  EXPECT_TRUE(house_->lamps().empty());
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfEntities, IsSoundAfterAnExceptionThroughCreationAndRemoval) {
  bool angry = true;
  const auto watcher = make<HouseWatcher>(house_, [&](const String&) {
    if (angry) throw std::runtime_error("boom");
  });
  EXPECT_THROW(house_->lampIs("a"), std::runtime_error);
  EXPECT_THROW(house_->lampIs("b"), std::runtime_error);
  EXPECT_THROW(house_->lampDel("a"), std::runtime_error);
  EXPECT_FALSE(house_->lamps().has("a"));
  EXPECT_TRUE(house_->lamps().has("b"));
  EXPECT_THROW(house_->lampDelAll(), std::runtime_error);
  angry = false;
  house_->lampIs("c");
  recorder_->take();
  house_->lampDelAll();
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.lamp[c]"));
}

TEST_F(CollectionOfEntities, OwnerThatEndsReleasesItsMembers) {
  auto house = make<House>();
  const auto hall = house->lampIs("hall");
  house = nullptr;
  EXPECT_EQ(hall->references(), 1U);
}

TEST_F(CollectionOfValues, TellsOfANewOneAndOfADifferentOne) {
  house_->readingIs(7, "low");
  house_->readingIs(7, "high");
  EXPECT_EQ(house_->reading(7), "high");
  EXPECT_EQ(house_->readings().size(), 1U);
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.reading[7]", "Test::House.reading[7]"));
}

TEST_F(CollectionOfValues, TellsNothingOfAnEqualOne) {
  house_->readingIs(7, "low");
  recorder_->take();
  house_->readingIs(7, "low");
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(CollectionOfValues, TellsOfARemovalOnceWithItsKey) {
  house_->readingIs(4'000'000'000, "low");
  recorder_->take();
  std::vector<uint32_t> keys;
  const auto watcher = make<HouseWatcher>(
      house_, [](const String&) {}, [&](uint32_t number) { keys.push_back(number); });
  house_->readingDel(4'000'000'000);
  house_->readingDel(4'000'000'000);
  EXPECT_THAT(keys, ElementsAre(4'000'000'000));
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.reading[4000000000]"));
}

TEST_F(CollectionOfValues, GivesADefaultValueForWhatIsNotThere) {
  house_->readingIs(1, "low");
  EXPECT_EQ(house_->reading(2), "");
  EXPECT_FALSE(house_->readings().has(2));
}

TEST_F(CollectionOfValues, MayBeChangedAgainByAHandler) {
  const auto watcher = make<HouseWatcher>(
      house_, [](const String&) {},
      [&](uint32_t number) {
        if (house_->reading(number) == "low") house_->readingIs(number, "high");
      });
  house_->readingIs(1, "low");
  EXPECT_EQ(house_->reading(1), "high");
  EXPECT_EQ(recorder_->take().size(), 2U);
}

}  // namespace
}  // namespace rt::test
