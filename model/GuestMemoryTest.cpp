// What memory guests take, and who may be started.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/GuestMemory.h"

namespace model {
namespace {

using testing::Eq;
using testing::Optional;

class GuestMemory : public testing::Test {
 protected:
  const Vm::VmConfig::Ptr vm = rt::make<Vm::VmConfig>("web1");
};

TEST_F(GuestMemory, IsTheGuestsAndQemusOwn) {
  vm->memoryIs(256);
  EXPECT_EQ(memoryNeed(*vm, Processor::real), 256U + 2 + 64 + 4 + 32);
  vm->vncPortIs(5901);
  EXPECT_EQ(memoryNeed(*vm, Processor::real), 256U + 2 + 64 + 4 + 32 + 16);
}

TEST_F(GuestMemory, OfAnEmulatedOneHasTheCodeThatWasTranslated) {
  vm->memoryIs(256);
  EXPECT_EQ(memoryNeed(*vm, Processor::emulated) - memoryNeed(*vm, Processor::real), 80U);
  vm->memoryIs(16384);
  EXPECT_EQ(memoryNeed(*vm, Processor::emulated) - memoryNeed(*vm, Processor::real), 320U);
}

TEST(Room, IsThereUpToTheCap) {
  const Room room{.cap = 1000, .given = 700, .available = 5000};
  EXPECT_EQ(refusalOf(300, room), std::nullopt);
  EXPECT_THAT(refusalOf(301, room),
              Optional(Eq("301 MiB would make 1,001 of all guests; they may have 1,000")));
}

TEST(Room, LeavesTheMachineItsReserve) {
  const Room room{.cap = 100'000, .reserve = 2048, .available = 24'105};
  EXPECT_EQ(refusalOf(22'057, room), std::nullopt);
  EXPECT_THAT(refusalOf(24'000, room),
              Optional(Eq("24,000 MiB would leave 105 MiB; the reserve is 2,048")));
  EXPECT_THAT(refusalOf(30'000, room),
              Optional(Eq("30,000 MiB are not there: 24,105 are available; the reserve is 2,048")));
}

// Two that have not touched their memory yet are not both let in.
TEST(Room, IsNotWhatOthersWereGivenAndDidNotTouchYet) {
  Room room{.cap = 100'000, .given = 3000, .touched = 100, .reserve = 1000, .available = 6000};
  EXPECT_THAT(refusalOf(3000, room),
              Optional(Eq("3,000 MiB would leave 100 MiB; the reserve is 1,000")));
  room.touched = 3000;
  EXPECT_EQ(refusalOf(3000, room), std::nullopt);
}

TEST(Room, IsUpToTheCapAloneWhereTheMachineDoesNotSay) {
  EXPECT_EQ(refusalOf(1000, {.cap = 1000, .reserve = 500}), std::nullopt);
}

TEST(Room, IsByItselfAQuarterLessThanThereIs) {
  EXPECT_EQ(usualCap(1024), 768U);
  EXPECT_EQ(usualReserve(1024), 128U);
  EXPECT_EQ(usualReserve(65536), 2048U);
}

TEST(Meminfo, SaysWhatIsAvailable) {
  EXPECT_THAT(availableIn("MemTotal:  24684000 kB\nMemFree: 1 kB\nMemAvailable:   22748160 kB\n"),
              Optional(22215U));
  EXPECT_EQ(availableIn("MemTotal: 5 kB\n"), std::nullopt);
  EXPECT_EQ(availableIn("MemAvailable:"), std::nullopt);
}

TEST(Numbers, AreGroupedInThousands) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(1234567), "1,234,567");
}

}  // namespace
}  // namespace model
