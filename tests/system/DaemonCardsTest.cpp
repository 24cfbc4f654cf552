// Which macvtap devices there are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/Taps.h"
#include "tests/system/DaemonWorld.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* firstMac = "52:54:00:12:34:01";
constexpr const char* secondMac = "52:54:00:12:34:02";

// The kernel's list.

TEST(KernelsTaps, AreTheMacvtapDevicesOnly) {
  EXPECT_THAT(host::taps(), IsEmpty());
  ip("link add Ethernet1 type veth peer name peer-Ethernet1");
  ip("link add link Ethernet1 name lan0 type macvlan mode bridge");
  ip("link add link Ethernet1 name macvtap0 address 52:54:00:12:34:01 type macvtap mode bridge");
  ip("link add link Ethernet1 name tap7 address 52:54:00:12:34:02 type macvtap mode bridge");
  EXPECT_THAT(host::taps(), ElementsAre(Tap{"macvtap0", rt::EthAddr(rt::String(firstMac))},
                                        Tap{"tap7", rt::EthAddr(rt::String(secondMac))}));
}

}  // namespace
}  // namespace host::fakes
