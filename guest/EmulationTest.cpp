// What guests need whose processor is emulated, and whose is not.
#include <gtest/gtest.h>

#include "guest/Emulation.h"

namespace guest {
namespace {

TEST(Emulation, KeepsAQuarterOfTheGuestsMemoryOfCodeWithinBounds) {
  EXPECT_EQ(codeCacheOf(64), 32U);
  EXPECT_EQ(codeCacheOf(256), 64U);
  EXPECT_EQ(codeCacheOf(1024), 256U);
  EXPECT_EQ(codeCacheOf(65536), 256U);
}

TEST(Emulation, CanRunGuestsWhenItSaysSo) {
  EXPECT_TRUE(canRunGuests("processor : 0\nflags\t\t: fpu vmx sse\n"));
  EXPECT_TRUE(canRunGuests("processor : 0\nflags\t\t: fpu svm"));
  EXPECT_TRUE(canRunGuests("processor : 0\nflags\t\t: vmx\nbugs : none\n"));
}

TEST(Emulation, CannotRunGuestsOtherwise) {
  EXPECT_FALSE(canRunGuests(""));
  EXPECT_FALSE(canRunGuests("processor : 0\nflags : fpu sse\nvmx flags : ept\n"));
  EXPECT_FALSE(canRunGuests("processor : 0\nflags : svm_lock xvmx\n"));
}

}  // namespace
}  // namespace guest
