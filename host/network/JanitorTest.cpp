// Which macvtap devices are left over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/Janitor.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t port = 7;

rt::EthAddr mac(int last) {
  return *rt::EthAddr::fromText("52:54:00:00:00:0" + std::to_string(last));
}

std::vector<Tap> tapsAre(const std::vector<std::pair<const char*, rt::EthAddr>>& all) {
  std::vector<Tap> taps;
  for (const auto& [name, address] : all) taps.push_back({name, address, port, true});
  return taps;
}

TEST(JanitorStrayTaps, AreThoseOfOurCardsThatNoCardNames) {
  EXPECT_THAT(strayTaps(tapsAre({{"macvtap0", mac(1)}, {"macvtap1", mac(2)}}), {mac(1), mac(2)},
                        {{"macvtap1", mac(2), port}}),
              ElementsAre("macvtap0"));
}

TEST(JanitorStrayTaps, AreNeverAnotherPrograms) {
  EXPECT_THAT(strayTaps(tapsAre({{"macvtap0", mac(9)}}), {mac(1)}, {}), IsEmpty());
  for (const char* const name : {"tap0", "macvtap", "macvtap0a", "macvtapx", "mymacvtap0"})
    EXPECT_THAT(strayTaps(tapsAre({{name, mac(1)}}), {mac(1)}, {}), IsEmpty()) << name;
}

TEST(JanitorStrayTaps, AreNotWhatACardNames) {
  EXPECT_THAT(strayTaps(tapsAre({{"macvtap0", mac(1)}}), {mac(1)}, {{"macvtap0", mac(1), port}}),
              IsEmpty());
}

TEST(JanitorStrayTaps, MayHaveANameThatAnotherCardRemembers) {
  EXPECT_THAT(
      strayTaps(tapsAre({{"macvtap0", mac(1)}}), {mac(1), mac(2)}, {{"macvtap0", mac(2), port}}),
      ElementsAre("macvtap0"));
}

TEST(JanitorStrayTaps, MayBeSeveralOfOneCard) {
  EXPECT_THAT(strayTaps(tapsAre({{"macvtap0", mac(1)}, {"macvtap1", mac(1)}}), {mac(1)},
                        {{"macvtap1", mac(1), port}}),
              ElementsAre("macvtap0"));
}

TEST(JanitorTap, IsTheDeviceOfThatNameWithItsAddressOnItsInterface) {
  const auto all = tapsAre({{"macvtap0", mac(1)}, {"macvtap1", mac(2)}});
  EXPECT_EQ(tapOf({"macvtap0", mac(1), port}, all), &all[0]);
  EXPECT_EQ(tapOf({"macvtap1", mac(2), port}, all), &all[1]);
  EXPECT_EQ(tapOf({"macvtap0", mac(2), port}, all), nullptr);
  EXPECT_EQ(tapOf({"macvtap2", mac(1), port}, all), nullptr);
  EXPECT_EQ(tapOf({"macvtap0", mac(1), port + 1}, all), nullptr);
  EXPECT_EQ(tapOf({"macvtap0", mac(1), 0}, all), nullptr);
  EXPECT_EQ(tapOf({"", mac(1), port}, all), nullptr);
  EXPECT_EQ(tapOf({"macvtap0", mac(1), port}, {}), nullptr);
}

}  // namespace
}  // namespace host
