// Which macvtap devices are left over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/Janitor.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

rt::EthAddr mac(int last) {
  return *rt::EthAddr::fromText("52:54:00:00:00:0" + std::to_string(last));
}

TEST(StrayTaps, AreThoseOfOurCardsThatNoCardNames) {
  EXPECT_THAT(strayTaps({{"macvtap0", mac(1)}, {"macvtap1", mac(2)}}, {mac(1), mac(2)},
                        {{"macvtap1", mac(2)}}),
              ElementsAre("macvtap0"));
}

TEST(StrayTaps, AreNeverAnotherPrograms) {
  EXPECT_THAT(strayTaps({{"macvtap0", mac(9)}}, {mac(1)}, {}), IsEmpty());
}

TEST(StrayTaps, AreNotWhatACardNames) {
  EXPECT_THAT(strayTaps({{"macvtap0", mac(1)}}, {mac(1)}, {{"macvtap0", mac(1)}}), IsEmpty());
}

TEST(StrayTaps, MayHaveANameThatAnotherCardRemembers) {
  EXPECT_THAT(strayTaps({{"macvtap0", mac(1)}}, {mac(1), mac(2)}, {{"macvtap0", mac(2)}}),
              ElementsAre("macvtap0"));
}

TEST(StrayTaps, MayBeSeveralOfOneCard) {
  EXPECT_THAT(
      strayTaps({{"macvtap0", mac(1)}, {"macvtap1", mac(1)}}, {mac(1)}, {{"macvtap1", mac(1)}}),
      ElementsAre("macvtap0"));
}

TEST(ACardsTap, IsThereWhileTheDeviceOfThatNameHasItsAddress) {
  EXPECT_TRUE(isThere({"macvtap0", mac(1)}, {{"macvtap0", mac(1)}}));
  EXPECT_FALSE(isThere({"macvtap0", mac(1)}, {{"macvtap0", mac(2)}}));
  EXPECT_FALSE(isThere({"macvtap0", mac(1)}, {{"macvtap1", mac(1)}}));
  EXPECT_FALSE(isThere({"macvtap0", mac(1)}, {}));
}

}  // namespace
}  // namespace host
