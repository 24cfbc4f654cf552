// Walks of a collection that changes meanwhile.
#include <gmock/gmock.h>

#include <stdexcept>

#include "runtime/entity/TestEntities.h"

namespace rt::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

House::Ptr houseOf(std::initializer_list<const char*> names) {
  auto house = make<House>();
  for (const char* name : names) house->lampIs(name);
  return house;
}

// The keys that a walk of the lamps visits while `work` is done at each.
template <class Work>
Log walk(const House::Ptr& house, Work work) {
  Log visited;
  for (const auto& [name, lamp] : house->lamps()) {
    visited.push_back(name.str());
    work(name, lamp);
  }
  return visited;
}
Log walk(const House::Ptr& house) {
  return walk(house, [](const String&, const Lamp::Ptr&) {});
}

TEST(CollectionWalk, VisitsNothingOfAnEmptyCollection) {
  EXPECT_THAT(walk(houseOf({})), IsEmpty());
}

TEST(CollectionWalk, VisitsEveryMemberOnceInKeyOrder) {
  EXPECT_THAT(walk(houseOf({"c", "a", "d", "b"})), ElementsAre("a", "b", "c", "d"));
}

TEST(CollectionWalk, VisitsNumbersInTheirOrder) {
  const auto house = make<House>();
  for (const uint32_t number : {10U, 9U, 100U}) house->readingIs(number, "x");
  std::vector<uint32_t> visited;
  for (const auto& [number, text] : house->readings()) visited.push_back(number);
  EXPECT_THAT(visited, ElementsAre(9U, 10U, 100U));
}

TEST(CollectionWalk, GoesOnWhenTheMemberItStandsAtIsRemoved) {
  const auto house = houseOf({"a", "b", "c"});
  const auto visited =
      walk(house, [&](const String& name, const Lamp::Ptr&) { house->lampDel(name); });
  EXPECT_THAT(visited, ElementsAre("a", "b", "c"));
  EXPECT_TRUE(house->lamps().empty());
}

TEST(CollectionWalk, KeepsTheRemovedMemberItStandsAtUntilItStepsOn) {
  const auto house = houseOf({"a", "b"});
  Log seen;
  walk(house, [&](const String& name, const Lamp::Ptr& lamp) {
    house->lampDel(name);
    seen.push_back(name.str() + " " + lamp->name().str() + " " +
                   std::to_string(lamp->references()));
  });
  EXPECT_THAT(seen, ElementsAre("a a 1", "b b 1"));
}

TEST(CollectionWalk, PassesOverTheNextMemberWhenThatIsRemoved) {
  const auto house = houseOf({"a", "b", "c"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    if (name == "a") house->lampDel("b");
  });
  EXPECT_THAT(visited, ElementsAre("a", "c"));
}

TEST(CollectionWalk, EndsWhenTheLastMembersAreRemoved) {
  const auto house = houseOf({"a", "b", "c"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    if (name != "a") return;
    house->lampDel("c");
    house->lampDel("b");
  });
  EXPECT_THAT(visited, ElementsAre("a"));
}

TEST(CollectionWalk, IsUntouchedByTheRemovalOfAMemberItHasVisited) {
  const auto house = houseOf({"a", "b", "c"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    if (name == "b") house->lampDel("a");
  });
  EXPECT_THAT(visited, ElementsAre("a", "b", "c"));
}

TEST(CollectionWalk, EndsWhenAllAreRemoved) {
  const auto house = houseOf({"a", "b", "c"});
  Log seen;
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr& lamp) {
    house->lampDelAll();
    seen.push_back(name.str() + lamp->name().str());
  });
  EXPECT_THAT(visited, ElementsAre("a"));
  EXPECT_THAT(seen, ElementsAre("aa"));
}

TEST(CollectionWalk, VisitsAMemberAddedFurtherOn) {
  const auto house = houseOf({"a", "c"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    if (name == "a") house->lampIs("d");
  });
  EXPECT_THAT(visited, ElementsAre("a", "c", "d"));
}

TEST(CollectionWalk, VisitsNoMemberTwiceWhenTheOneItStandsAtIsMadeAgain) {
  const auto house = houseOf({"a", "b"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    String again;  // outlives the member and its name
    again = name;
    house->lampDel(again);
    house->lampIs(again);
  });
  EXPECT_THAT(visited, ElementsAre("a", "b"));
  EXPECT_EQ(house->lamps().size(), 2U);
}

TEST(CollectionWalk, NeverGoesBackToAMemberAddedBehindIt) {
  const auto house = houseOf({"b", "c"});
  const auto visited = walk(house, [&](const String& name, const Lamp::Ptr&) {
    if (name == "c") house->lampIs("a");
  });
  EXPECT_THAT(visited, ElementsAre("b", "c"));
}

TEST(CollectionWalk, InnerWalkMayRemoveWhatTheOuterStandsAtAndWhatFollows) {
  const auto house = houseOf({"a", "b", "c", "d"});
  Log inner;
  const auto outer = walk(house, [&](const String& name, const Lamp::Ptr& lamp) {
    if (name == "a")
      inner = walk(house, [&](const String& each, const Lamp::Ptr&) {
        if (each != "d") house->lampDel(each);
      });
    EXPECT_EQ(lamp->name(), name);
  });
  EXPECT_THAT(inner, ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(outer, ElementsAre("a", "d"));
}

TEST(CollectionWalk, TwoWalksAtTheSameMemberBothKeepItWhenItIsRemoved) {
  const auto house = houseOf({"a", "b"});
  Log seen;
  walk(house, [&](const String& name, const Lamp::Ptr& lamp) {
    if (name != "a") return;
    walk(house, [&](const String& each, const Lamp::Ptr& same) {
      if (each != "a") return;
      house->lampDel("a");
      seen.push_back("inner " + same->name().str());
    });
    seen.push_back("outer " + lamp->name().str());
  });
  EXPECT_THAT(seen, ElementsAre("inner a", "outer a"));
}

TEST(CollectionWalk, EndsWhenItsCollectionEnds) {
  auto house = houseOf({"a", "b", "c"});
  Log seen;
  for (const auto& [name, lamp] : house->lamps()) {
    house = nullptr;
    seen.push_back(name.str() + lamp->name().str());
  }
  EXPECT_THAT(seen, ElementsAre("aa"));
}

TEST(CollectionWalk, EndsWhenItsCollectionEndsInAnInnerWalk) {
  auto house = houseOf({"a", "b", "c"});
  Log seen;
  for (const auto& [name, lamp] : house->lamps()) {
    for (const auto& [inner, same] : house->lamps()) {
      if (inner == "b") house = nullptr;
      seen.push_back(name.str() + inner.str() + same->name().str());
      if (!house) break;
    }
    seen.push_back(lamp->name().str());
  }
  EXPECT_THAT(seen, ElementsAre("aaa", "abb", "a"));
}

TEST(CollectionWalk, EndsWhenItsCollectionEndsAfterTheRemovalOfTheMemberItStandsAt) {
  auto house = houseOf({"a", "b"});
  Log seen;
  for (const auto& [name, lamp] : house->lamps()) {
    house->lampDel(name);
    house = nullptr;
    seen.push_back(name.str() + lamp->name().str());
  }
  EXPECT_THAT(seen, ElementsAre("aa"));
}

TEST(CollectionWalk, EndsWhenTheRemovedMemberItLeavesTakesTheCollectionWithIt) {
  auto office = make<Office>();
  const auto lamp = make<Lamp>();
  const String name = "a name too long to be stored within a string itself";
  office->watcherIs(name, lamp)->atLastAct = [&] { office = nullptr; };
  office->watcherIs("z", lamp);
  Log seen;
  for (const auto& [each, watcher] : office->watchers()) {
    seen.push_back(each.str());
    office->watcherDel(each);
  }
  EXPECT_THAT(seen, ElementsAre(name.str()));
  EXPECT_EQ(office, nullptr);
}

TEST(CollectionWalk, LeftByBreakOrExceptionLeavesTheCollectionSound) {
  const auto house = houseOf({"a", "b"});
  for (const auto& [name, lamp] : house->lamps()) {
    house->lampDel(name);
    break;
  }
  EXPECT_THROW(walk(house, [](const String&, const Lamp::Ptr&) { throw std::runtime_error("!"); }),
               std::runtime_error);
  house->lampDel("b");
  house->lampIs("c");
  EXPECT_THAT(walk(house), ElementsAre("c"));
}

TEST(CollectionWalk, HandlerOfARemovalMayRemoveTheRestOfAWalk) {
  const auto house = houseOf({"a", "b", "c"});
  const auto watcher = make<HouseWatcher>(house, [&](const String&) { house->lampDelAll(); });
  const auto visited =
      walk(house, [&](const String& name, const Lamp::Ptr&) { house->lampDel(name); });
  EXPECT_THAT(visited, ElementsAre("a"));
  EXPECT_TRUE(house->lamps().empty());
}

TEST(CollectionWalk, ValueItStandsAtStaysWhenItIsRemoved) {
  const auto house = make<House>();
  const String longText = "a text too long to be stored within a string itself";
  house->readingIs(1, longText);
  house->readingIs(2, "two");
  Log seen;
  for (const auto& [number, text] : house->readings()) {
    house->readingDel(number);
    seen.push_back(text.str());
  }
  EXPECT_THAT(seen, ElementsAre(longText.str(), "two"));
  EXPECT_TRUE(house->readings().empty());
}

}  // namespace
}  // namespace rt::test
