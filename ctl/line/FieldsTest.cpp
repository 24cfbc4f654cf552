// What is typed for the fields of a VM.
#include <gmock/gmock.h>

#include "ctl/line/Exit.h"
#include "ctl/line/Fields.h"
#include "model/VmFields.h"

namespace ctl {
namespace {

TEST(FieldsMemory, IsReadInMebibytesWithAnyUnit) {
  EXPECT_EQ(model::mebibytesOf("256"), 256U);
  EXPECT_EQ(model::mebibytesOf("256M"), 256U);
  EXPECT_EQ(model::mebibytesOf("2g"), 2048U);
  EXPECT_EQ(model::mebibytesOf("2048K"), 2U);
  EXPECT_EQ(model::mebibytesOf("1.5G"), 1536U);
  EXPECT_EQ(model::mebibytesOf("0.25g"), 256U);
  EXPECT_EQ(model::mebibytesOf("512.0"), 512U);
  EXPECT_EQ(model::mebibytesOf("4294967296K"), 4194304U);
  EXPECT_EQ(model::mebibytesOf("0"), 0U);
  EXPECT_EQ(model::mebibytesOf("4294967295"), 4294967295U);
}

TEST(FieldsMemory, ThatIsNoNumberOfMebibytesIsRefused) {
  for (const char* text : {"",
                           "M",
                           "-1",
                           "+1",
                           " 1",
                           "1 M",
                           "1.5",
                           "1.1G",
                           "1.",
                           ".5G",
                           "1.5.5G",
                           "1e3",
                           "inf",
                           "0x10",
                           "1000K",
                           "1T",
                           "4294967296",
                           "17592186044416M",
                           "18446744073709551615G",
                           "99999999999999999999"})
    EXPECT_EQ(model::mebibytesOf(text), std::nullopt) << text;
}

TEST(FieldsNextKey, FollowsTheHighest) {
  const auto vm = rt::make<Vm::VmConfig>("web1");
  EXPECT_EQ(nextKey(*vm), "nic00");
  vm->vnicConfigIs("card");  // comes before all
  EXPECT_EQ(nextKey(*vm), "nic00");
  vm->vnicConfigIs("nic07");
  vm->vnicConfigIs("nic02");
  EXPECT_EQ(nextKey(*vm), "nic08");
  vm->vnicConfigIs("wan");
  EXPECT_THROW(nextKey(*vm), Refusal);
}

}  // namespace
}  // namespace ctl
