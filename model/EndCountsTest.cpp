#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/EndCounts.h"

namespace model {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(EndCounts, AreReadAsTheyAreWritten) {
  const EndCounts counts{{"asked", 2}, {"killed", 1}};
  EXPECT_EQ(textOf(counts), "asked:2 killed:1");
  EXPECT_EQ(endCountsFrom(textOf(counts)), counts);
  EXPECT_THAT(endCountsFrom(textOf(EndCounts{})), IsEmpty());
}

TEST(EndCounts, LeaveOutWhatIsNone) {
  EXPECT_THAT(endCountsFrom("asked killed:-1 :1  quit:x watchdog:3"),
              ElementsAre(Pair("watchdog", 3)));
}

}  // namespace
}  // namespace model
