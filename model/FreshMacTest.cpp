// Which address a card gets of which nobody has said one.
#include <gtest/gtest.h>

#include "model/FreshMac.h"

namespace model {
namespace {

rt::EthAddr mac(const char* text) { return rt::EthAddr(rt::String(text)); }

TEST(FreshMac, IsOneOfQemusWithTheNumber) {
  const auto vm = rt::make<Vm::VmConfig>("web1");
  EXPECT_EQ(freshMac(*vm, ConfigIndex(), 0xab123456), mac("52:54:00:12:34:56"));
}

TEST(FreshMac, IsTheNextThatNeitherTheVmNorAnotherHas) {
  const auto vm = rt::make<Vm::VmConfig>("web1");
  const auto other = rt::make<Vm::VmConfig>("web2");
  vm->vnicConfigIs("nic00")->macAddrIs(mac("52:54:00:ff:ff:fe"));
  other->vnicConfigIs("nic00")->macAddrIs(mac("52:54:00:ff:ff:ff"));
  ConfigIndex others;
  others.vmIs(*other);
  EXPECT_EQ(freshMac(*vm, others, 0xfffffe), mac("52:54:00:00:00:00"));
}

}  // namespace
}  // namespace model
