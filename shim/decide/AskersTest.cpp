#include <gmock/gmock.h>

#include "shim/decide/Askers.h"

namespace shim {
namespace {

constexpr uint32_t ann = 1000;
constexpr uint32_t root = 0;

TEST(Askers, HaveEachANumberOfItsOwnAndAreTakenOnce) {
  Askers askers;
  const uint64_t first = askers.add({7, ann, {}, {}});
  const uint64_t second = askers.add({8, root, {}, {}});
  EXPECT_NE(first, second);
  EXPECT_EQ(askers.take(second)->client, 8U);
  EXPECT_FALSE(askers.take(second));
  EXPECT_EQ(askers.take(first)->client, 7U);
}

TEST(Askers, OfOneUserAreSomeByWhateverConnections) {
  Askers askers;
  uint64_t last = 0;
  for (size_t i = 0; i < Askers::mostOfAUser; ++i) {
    EXPECT_TRUE(askers.mayAsk(ann));
    last = askers.add({i, ann, {}, {}});
  }
  EXPECT_FALSE(askers.mayAsk(ann));
  EXPECT_TRUE(askers.mayAsk(root));
  EXPECT_TRUE(askers.take(last));
  EXPECT_TRUE(askers.mayAsk(ann));
}

}  // namespace
}  // namespace shim
