#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "runtime/entity/Ptr.h"
#include "runtime/entity/TestEntities.h"

namespace rt::test {
namespace {

// Counts the ends of its kind, and takes references to itself on the way there.
class Counted : public RefCounted {
 public:
  explicit Counted(int& ends) : ends_(ends) {}
  ~Counted() override {
    const Ptr<Counted> self(this);
    ++ends_;
  }

 protected:
  void handleZeroReferences() override {
    { const Ptr<Counted> self(this); }
    { const Ptr<Counted> again(this); }
    RefCounted::handleZeroReferences();
  }

 private:
  int& ends_;
};
class CountedMore final : public Counted {
 public:
  using Counted::Counted;
};

// Sets the switch for its lifetime.
class WithSwitch {
 public:
  explicit WithSwitch(bool on) { threadSafePtrsIs(on); }
  WithSwitch(const WithSwitch&) = delete;
  ~WithSwitch() { threadSafePtrsIs(false); }
};

// With plain and with atomic counts.
class PtrCounts : public ::testing::TestWithParam<bool> {
 protected:
  int ends_ = 0;

 private:
  const WithSwitch switch_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Plain, PtrCounts, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Atomic, PtrCounts, ::testing::Values(true));

TEST_P(PtrCounts, NewObjectHasOneReference) {
  const auto ptr = make<Counted>(ends_);
  EXPECT_EQ(ptr->references(), 1U);
  EXPECT_EQ(threadSafePtrs(), GetParam());
}

TEST_P(PtrCounts, CopyAddsAReferenceAndItsEndReleasesIt) {
  const auto ptr = make<Counted>(ends_);
  {
    Ptr<Counted> copy;
    copy = ptr;
    EXPECT_EQ(ptr->references(), 2U);
  }
  EXPECT_EQ(ptr->references(), 1U);
  EXPECT_EQ(ends_, 0);
}

TEST_P(PtrCounts, MoveAddsNoReferenceAndLeavesNull) {
  auto ptr = make<Counted>(ends_);
  const auto moved = std::move(ptr);
  EXPECT_EQ(ptr, nullptr);  // NOLINT(bugprone-use-after-move): that is the claim
  EXPECT_EQ(moved->references(), 1U);
}

TEST_P(PtrCounts, PtrToABaseClassAddsAReference) {
  const auto more = make<CountedMore>(ends_);
  const Ptr<Counted> base = more;
  const Ptr<const Counted> constant = base;
  EXPECT_EQ(more->references(), 3U);
  EXPECT_EQ(constant, more);
}

TEST_P(PtrCounts, ObjectEndsOnceWithItsLastReference) {
  auto ptr = make<Counted>(ends_);
  auto copy = ptr;
  ptr = nullptr;
  EXPECT_EQ(ends_, 0);
  copy = nullptr;
  EXPECT_EQ(ends_, 1);
}

TEST_P(PtrCounts, ReferencesTakenDuringTheEndDoNotEndItTwice) {
  make<Counted>(ends_);
  EXPECT_EQ(ends_, 1);
}

TEST_P(PtrCounts, AssignmentReleasesTheOldObject) {
  int otherEnds = 0;
  auto ptr = make<Counted>(ends_);
  ptr = make<Counted>(otherEnds);
  EXPECT_EQ(ends_, 1);
  EXPECT_EQ(otherEnds, 0);
}

TEST_P(PtrCounts, AssignmentToItselfChangesNothing) {
  auto ptr = make<Counted>(ends_);
  const auto& same = ptr;
  ptr = same;
  EXPECT_EQ(ptr->references(), 1U);
  EXPECT_EQ(ends_, 0);
}

TEST(Ptr, IsNullAtFirst) {
  const Ptr<Lamp> none;
  EXPECT_EQ(none, nullptr);
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), nullptr);
}

TEST(Ptr, IsEqualToAnotherToTheSameObjectWhateverItsType) {
  const auto lamp = make<Lamp>();
  const auto other = make<Lamp>();
  const Lamp::PtrConst constant = lamp;
  const Ptr<Entity> entity = lamp;
  EXPECT_TRUE(lamp == constant);
  EXPECT_TRUE(constant == lamp);
  EXPECT_TRUE(lamp == entity);
  EXPECT_TRUE(lamp != other);
  EXPECT_FALSE(lamp == other);
}

TEST(Ptr, GivesNoWayFromConstOrDownwardsWithoutACast) {
  EXPECT_FALSE((std::is_convertible_v<Ptr<const Lamp>, Ptr<Lamp>>));
  EXPECT_FALSE((std::is_convertible_v<Ptr<Entity>, Ptr<Lamp>>));
  EXPECT_FALSE((std::is_convertible_v<Lamp*, Ptr<Lamp>>));
  EXPECT_TRUE((std::is_convertible_v<Ptr<Lamp>, Ptr<Entity>>));
}

TEST(Ptr, CastGivesNullForAnotherType) {
  const Ptr<Entity> entity = make<Lamp>("cast");
  EXPECT_EQ(ptrCast<House>(entity), nullptr);
  EXPECT_EQ(ptrCast<Lamp>(entity)->name(), "cast");
  EXPECT_EQ(entity->references(), 1U);
}

TEST(Ptr, ConstructorMayReferToItsOwnObject) {
  class Selfish final : public RefCounted {
   public:
    Selfish() {
      const Ptr<Selfish> self(this);
      seen = references();
    }
    uint32_t seen = 0;
  };
  const auto selfish = make<Selfish>();
  EXPECT_EQ(selfish->seen, 2U);
  EXPECT_EQ(selfish->references(), 1U);
}

TEST(Ptr, ConstructorThatThrowsLeavesNothingBehind) {
  class Broken final : public RefCounted {
   public:
    explicit Broken(int& ends) : member_(make<Counted>(ends)) { throw std::runtime_error("no"); }

   private:
    Ptr<Counted> member_;
  };
  int ends = 0;
  EXPECT_THROW(make<Broken>(ends), std::runtime_error);
  EXPECT_EQ(ends, 1);
}

TEST(Ptr, CountsOfManyThreadsAddUpWhenTheyAreAtomic) {
  const WithSwitch atomic(true);
  int ends = 0;
  auto ptr = make<Counted>(ends);
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([ptr] {
        for (int round = 0; round < 50'000; ++round) {
          Ptr<Counted> one;
          one = ptr;
          const Ptr<const Counted> two = one;
        }
      });
  }
  EXPECT_EQ(ptr->references(), 1U);
  EXPECT_EQ(ends, 0);
  ptr = nullptr;
  EXPECT_EQ(ends, 1);
}

TEST(Ptr, ObjectOfManyThreadsEndsOnceWhicheverIsLast) {
  const WithSwitch atomic(true);
  std::vector<int> ends(500, 0);
  for (int& each : ends) {
    auto ptr = make<Counted>(each);
    std::jthread other([mine = ptr]() mutable { mine = nullptr; });
    ptr = nullptr;
  }
  EXPECT_THAT(ends, ::testing::Each(1));
}

}  // namespace
}  // namespace rt::test
