#include <gmock/gmock.h>

#include <memory>

#include "runtime/entity/OrderedQueue.h"
#include "runtime/entity/TestEntities.h"

namespace rt::test {
namespace {

using ::testing::ElementsAre;

TEST(OrderedQueue, GivesBackFirstWhatWasAddedFirst) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  queue.enq("c");
  const std::vector<String> taken{queue.deq(), queue.deq(), queue.deq()};
  EXPECT_THAT(taken, ElementsAre("a", "b", "c"));
  EXPECT_TRUE(queue.empty());
}

TEST(OrderedQueue, KnowsItsFrontItsBackAndItsSize) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  EXPECT_EQ(queue.front(), "a");
  EXPECT_EQ(queue.back(), "b");
  EXPECT_EQ(queue.size(), 2U);
  EXPECT_FALSE(queue.empty());
}

TEST(OrderedQueue, IndexesCountFromZeroAndGrowAlsoAfterRemovals) {
  OrderedQueue<String> queue("test queue", 3);
  EXPECT_EQ(queue.enq("a"), 0U);
  EXPECT_EQ(queue.enq("b"), 1U);
  queue.deq();
  queue.deq();
  EXPECT_EQ(queue.enq("c"), 2U);
  EXPECT_EQ(queue.frontIndex(), 2U);
  EXPECT_EQ(queue.nextIndex(), 3U);
}

TEST(OrderedQueue, IndexesGrowAlsoAfterItWasCleared) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  queue.clear();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.enq("c"), 2U);
}

TEST(OrderedQueue, GivesAnEntryUnderItsIndex) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  EXPECT_EQ(queue.at(0), "a");
  EXPECT_EQ(queue.at(1), "b");
  EXPECT_EQ(queue.at(2), "");
}

TEST(OrderedQueue, GivesDefaultValuesWhenEmpty) {
  OrderedQueue<uint32_t> queue("test queue", 3);
  EXPECT_EQ(queue.front(), 0U);
  EXPECT_EQ(queue.back(), 0U);
  EXPECT_EQ(queue.at(0), 0U);
  EXPECT_EQ(queue.frontIndex(), 0U);
  EXPECT_EQ(queue.nextIndex(), 0U);
}

TEST(OrderedQueue, TakingFromAnEmptyOneGivesADefaultValueAndChangesNothing) {
  OrderedQueue<String> queue("test queue", 3);
  EXPECT_EQ(queue.deq(), "");
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_EQ(queue.enq("a"), 0U);
}

TEST(OrderedQueue, FindsAnEntryOrNothing) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  ASSERT_NE(queue.find(0), nullptr);
  EXPECT_EQ(*queue.find(0), "a");
  EXPECT_EQ(queue.find(1), nullptr);
}

TEST(OrderedQueue, ListsItsEntriesFromTheFront) {
  OrderedQueue<String> queue("test queue", 3);
  for (const char* text : {"a", "b", "c"}) queue.enq(text);
  queue.remove(1);
  std::vector<std::pair<uint32_t, String>> entries(queue.begin(), queue.end());
  EXPECT_THAT(entries, ElementsAre(std::pair(0U, String("a")), std::pair(2U, String("c"))));
}

TEST(OrderedQueue, FrontIndexOfAnEmptyOneIsTheNextIndex) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  queue.deq();
  queue.deq();
  EXPECT_EQ(queue.frontIndex(), 2U);
}

TEST(OrderedQueue, StoreReplacesAnEntryInItsPlace) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  queue.store(0, "A");
  EXPECT_EQ(queue.size(), 2U);
  EXPECT_EQ(queue.front(), "A");
  EXPECT_EQ(queue.nextIndex(), 2U);
}

TEST(OrderedQueue, StoreAheadMakesTheIndexesGoOnFromThere) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.store(10, "k");
  EXPECT_EQ(queue.nextIndex(), 11U);
  EXPECT_EQ(queue.enq("l"), 11U);
  EXPECT_EQ(queue.back(), "l");
  EXPECT_EQ(queue.at(5), "");
  EXPECT_EQ(queue.size(), 3U);
}

TEST(OrderedQueue, StoreBehindTheFrontIsTakenFirst) {
  OrderedQueue<String> queue("test queue", 3);
  queue.enq("a");
  queue.enq("b");
  queue.deq();
  queue.store(0, "again");
  EXPECT_EQ(queue.frontIndex(), 0U);
  EXPECT_EQ(queue.deq(), "again");
  EXPECT_EQ(queue.nextIndex(), 2U);
}

TEST(OrderedQueue, RemovesFromItsMiddle) {
  OrderedQueue<String> queue("test queue", 3);
  for (const char* text : {"a", "b", "c"}) queue.enq(text);
  EXPECT_TRUE(queue.remove(1));
  EXPECT_FALSE(queue.remove(1));
  const std::vector<String> taken{queue.deq(), queue.deq()};
  EXPECT_THAT(taken, ElementsAre("a", "c"));
}

TEST(OrderedQueue, FullThrowsNamingItselfAndChangesNothing) {
  OrderedQueue<String> queue("test queue", 2);
  queue.enq("a");
  queue.enq("b");
  const auto text = thrownBy<QueueFullException>([&] { queue.enq("c"); });
  EXPECT_EQ(text, "test queue: the queue is full (2 entries)");
  EXPECT_EQ(queue.size(), 2U);
  EXPECT_EQ(queue.front(), "a");
  EXPECT_EQ(queue.back(), "b");
  EXPECT_EQ(queue.nextIndex(), 2U);
}

TEST(OrderedQueue, FullTakesNoNewIndexButReplacesAnEntry) {
  OrderedQueue<String> queue("test queue", 2);
  queue.enq("a");
  queue.enq("b");
  EXPECT_THROW(queue.store(9, "c"), QueueFullException);
  EXPECT_EQ(queue.nextIndex(), 2U);
  queue.store(1, "B");
  EXPECT_EQ(queue.back(), "B");
}

TEST(OrderedQueue, HasRoomAgainAfterARemoval) {
  OrderedQueue<String> queue("test queue", 1);
  queue.enq("a");
  EXPECT_THROW(queue.enq("b"), QueueFullException);
  queue.deq();
  EXPECT_EQ(queue.enq("b"), 1U);
}

TEST(OrderedQueue, OfNoCapacityTakesNothing) {
  OrderedQueue<String> queue("test queue", 0);
  EXPECT_THROW(queue.enq("a"), QueueFullException);
  EXPECT_TRUE(queue.empty());
}

TEST(OrderedQueue, ReleasesTheReferenceOfWhatItGivesBack) {
  OrderedQueue<Lamp::Ptr> queue("test queue", 2);
  const auto lamp = make<Lamp>();
  queue.enq(lamp);
  EXPECT_EQ(lamp->references(), 2U);
  EXPECT_EQ(queue.deq(), lamp);
  EXPECT_EQ(lamp->references(), 1U);
}

}  // namespace
}  // namespace rt::test
